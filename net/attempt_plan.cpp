#include "net/attempt_plan.h"

#include <algorithm>
#include <utility>

#include "dns/edns.h"
#include "dns/message_header.h"
#include "net/query_transaction.h"

attempt_plan::attempt_plan(std::int32_t retry, std::int32_t delay_seconds, bool tcp, bool tcp_only,
                           std::vector<std::uint16_t> retry_rcodes)
    : m_retry(retry),
      m_pause(static_cast<unsigned>(delay_seconds)),  // handed to sleep() as unsigned, as always
      m_tcp(tcp),
      m_tcp_only(tcp_only),
      m_retry_rcodes(std::move(retry_rcodes)) {}

attempt_verdict attempt_plan::after(const attempt_result& result, std::int32_t counted_before) const {
  attempt_verdict verdict;
  // With -tcp_only every attempt is TCP and counts; otherwise a TCP attempt is a follow-up.
  verdict.counted = !result.over_tcp || m_tcp_only;
  const std::int32_t counted = counted_before + (verdict.counted ? 1 : 0);
  if (!result.over_tcp && m_tcp && !m_tcp_only && result.truncated) {
    verdict.next = next_step::tcp_follow_up;
    verdict.over_tcp = true;
    return verdict;
  }
  verdict.rejected = result.answered && result.rcode &&
                     std::find(m_retry_rcodes.begin(), m_retry_rcodes.end(), *result.rcode) != m_retry_rcodes.end();
  if (result.answered && !verdict.rejected) return verdict;
  verdict.pause = m_pause;
  verdict.next = counted > m_retry ? next_step::done : next_step::again;
  verdict.over_tcp = m_tcp_only;
  return verdict;
}

attempt_result result_of(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query, bool answered) {
  attempt_result result;
  result.over_tcp = transaction.transport == exchange_transport::tcp;
  result.answered = answered;
  result.truncated = truncated_reply(transaction, query);
  if (transaction.received_length != 0) {
    if (const auto header = read_message_header(transaction.received))
      result.rcode = full_rcode(header->rcode, find_opt_record(transaction.additional));
  }
  return result;
}

query_fate fate_of(const dns_packet_transaction& transaction, const attempt_result& result) {
  if (transaction.sent_length == 0) return query_fate::abandoned;
  if (transaction.received_length == 0) return query_fate::timed_out;
  if (result.rcode == k_rcode_refused || result.rcode == k_rcode_servfail) return query_fate::rejected;
  return query_fate::answered;
}
