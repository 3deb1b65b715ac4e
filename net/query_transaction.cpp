#include "net/query_transaction.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <span>
#include <vector>

#include "dns/message_header.h"
#include "dns/response_parser.h"
#include "net/event_loop.h"
#include "net/interrupt.h"
#include "net/socket.h"
#include "report/hex_view.h"
#include "report/table_writer.h"
#include "report/xml_writer.h"
#include "time/clock.h"

namespace {

// The largest datagram UDP can carry, so no reply is ever cut short by the read.
constexpr std::size_t k_receive_capacity = 65536;

constexpr std::uint32_t k_kind_datagram = 1;

// One buffer for the whole run: an attempt copies out what it received, at its own size, and
// the parser reads only those bytes (zero-extended past their end), so the buffer is neither
// made nor cleared per attempt.
std::span<std::uint8_t> receive_buffer() {
  static std::uint8_t buffer[k_receive_capacity];
  return buffer;
}

// The message ID as its two bytes stand, read low byte first like DNS_RES_RECORD::id.
// Comparing these values compares the raw bytes, whatever order the server assumed.
std::uint16_t raw_id(const shared_bytes& message) {
  const std::uint16_t low = message.empty() ? 0 : message[0];
  const std::uint16_t high = message.size() < 2 ? 0 : message[1];
  return static_cast<std::uint16_t>(low | (high << 8));
}

constexpr std::uint8_t k_rcode_noerror = 0;
constexpr std::uint8_t k_rcode_nxdomain = 3;

// One row to the writer of the chosen format, counted when the run keeps a summary.
struct row_writer {
  std::ostream& out;
  input_params& config;
  run_summary* summary;
  const json_row_context& context;  // read only by the JSON writer

  void operator()(DNS_RES_RECORD& record, const char* comment, const char* status) const {
    if (config.json)
      write_json_row(record, out, comment, status, context, config);
    else if (config.xml)
      write_xml_entry(record, out, config, status);  // the XML entry has no comment field
    else
      write_table_row(record, out, comment, status, config);
    if (summary) summary->count_row(status);
  }
};

// Waits, without holding up a stop signal, until the pacer lets the next query go; books it.
bool wait_for_turn(send_pacer& pacer) {
  for (;;) {
    const auto now = send_pacer::clock::now();
    if (now >= pacer.next_send()) {
      pacer.sent(now);
      return true;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(pacer.next_send() - now);
    if (!wait_readable(-1, static_cast<int>(left.count())) && interrupt_signal() != 0) return false;
  }
}

}  // namespace

name_outcome classify_attempt(const dns_packet_transaction& transaction, bool answered) {
  if (transaction.sent_length == 0 || transaction.received_length == 0) return name_outcome::no_reply;
  if (!answered) return name_outcome::failed;
  // A reply shorter than its header can still pass the parser, which reads zeros past the end.
  const auto header = read_message_header(transaction.received);
  if (!header) return name_outcome::failed;
  if (header->rcode == k_rcode_nxdomain) return name_outcome::empty;
  if (header->rcode != k_rcode_noerror) return name_outcome::failed;
  return transaction.answers.empty() ? name_outcome::empty : name_outcome::answered;
}

int attempt_wait_ms(const input_params& config) {
  if (config.timeout_ms >= 0) return config.timeout_ms;
  if (config.timeout < 0) return -1;  // as select() refusing a negative limit: wait for a datagram
  return static_cast<int>(std::min<std::int64_t>(std::int64_t{config.timeout} * 1000, INT_MAX));
}

name_outcome run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                       input_params& config, const run_extras& extras, const query_origin& origin) {
  // A negative retry count switches the query off: nothing is sent, not even a row written.
  if (config.retry < 0) return name_outcome::no_reply;
  const int wait_ms = attempt_wait_ms(config);
  for (std::int32_t attempt = 0;; ++attempt) {
    if (extras.pacer && !wait_for_turn(*extras.pacer)) return name_outcome::no_reply;
    transaction.clear();
    const bool answered = exchange(transaction, query, &config.server, wait_ms, config.port);
    if (interrupt_signal() != 0) return name_outcome::no_reply;  // the attempt was cut short: no row for it
    if (attempt == 0 && extras.summary) extras.summary->count_name();
    report_attempt(out, transaction, query, config, extras.summary, origin, attempt + 1);
    out.flush();
    if (answered) return classify_attempt(transaction, answered);
    // The pause follows every failed attempt, the last one included.
    if (config.delay != 0) pause_seconds(static_cast<unsigned>(config.delay));
    if (attempt >= config.retry || interrupt_signal() != 0) return classify_attempt(transaction, answered);
  }
}

bool exchange(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
              int wait_ms, std::uint16_t port) {
  qv::socket link = send_query(transaction, query, server, port);
  if (link.descriptor() == -1) return false;
  if (!wait_readable(static_cast<int>(link.descriptor()), wait_ms)) return false;
  return take_reply(transaction, query, server, link);
}

qv::socket send_query(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
                      std::uint16_t port) {
  transaction.clear();
  qv::socket link;
  if (server == nullptr || query.packet.empty()) return link;
  query.timestamp = now_timestamp();
  query.server = *server;
  if (!link.open(k_kind_datagram, AF_INET)) return link;

  // Only dotted IPv4 text is meant. The result is deliberately not checked: no name
  // resolution is attempted, and an unusable text simply fails or times out.
  const std::uint32_t address = ::inet_addr(server->c_str());
  transaction.sent = query.packet;
  if (!link.send_to(transaction.sent.data(), transaction.sent.size(), address, port)) {
    transaction.sent_length = 0;
    link.close();
    return link;
  }
  transaction.sent_length = static_cast<std::uint32_t>(transaction.sent.size());
  return link;
}

bool take_reply(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const std::string* server,
                qv::socket& link) {
  std::span<std::uint8_t> buffer = receive_buffer();
  transaction.received_length = link.read_datagram(buffer.data(), buffer.size());
  if (transaction.received_length == 0) return false;  // an empty datagram counts as none
  transaction.received = std::span<const std::uint8_t>(buffer.first(transaction.received_length));
  transaction.received_at = now_timestamp();

  // A reply with a foreign ID is still parsed, so its records are reported; the ID decides
  // only whether the attempt is repeated.
  const std::uint16_t query_id = raw_id(query.packet);
  std::uint16_t reply_id = static_cast<std::uint16_t>(~query_id);
  const unsigned parsed = parse_response(server, transaction.received_at, transaction.received, reply_id,
                                         transaction.questions, transaction.answers,
                                         transaction.authority, transaction.additional);
  return parsed != 0 && reply_id == query_id;
}

void report_attempt(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                    input_params& config, run_summary* summary, const query_origin& origin, std::int32_t attempt) {
  report_outcome(out, transaction, query, config, summary,
                 {origin.line, origin.asked, attempt, query.timestamp, &transaction});
  config.heading_pending = 0;
  if (config.verbose && !config.xml && !config.json) dump_attempt(out, transaction);
  if (summary) summary->count_attempt(transaction, query);
}

int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, run_summary* summary, const json_row_context& context) {
  const row_writer write_row{out, config, summary, context};
  // Without a parsed reply the row is the query record itself: name, type, server, ID and
  // the time of sending.
  if (transaction.sent_length == 0) {
    write_row(query, k_section_question, k_status_sock_err);
    return 1;
  }
  if (transaction.received_length == 0) {
    write_row(query, k_section_question, k_status_timeout);
    return 1;
  }
  const bool answered = !transaction.answers.empty();
  if (transaction.questions.empty() && !answered && transaction.authority.empty() &&
      transaction.additional.empty()) {
    write_row(query, k_section_question, k_status_unkresp);
    return 1;
  }
  // Questions are shown only when they went unanswered, and never for a CNAME query, whose
  // empty answer is a meaningful "no alias" rather than a failure.
  if (!answered && query.type != k_type_cname) {
    for (DNS_RES_RECORD& question : transaction.questions) write_row(question, k_section_question, k_status_invalid);
  }
  for (DNS_RES_RECORD& record : transaction.answers) write_row(record, k_section_answer, k_status_success);
  for (DNS_RES_RECORD& record : transaction.authority) write_row(record, k_section_authority, k_status_success);
  for (DNS_RES_RECORD& record : transaction.additional) write_row(record, k_section_additions, k_status_success);
  return 1;
}
