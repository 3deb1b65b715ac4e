#include "net/query_transaction.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <optional>
#include <span>

#include "dns/byte_reader.h"
#include "dns/edns.h"
#include "dns/message_header.h"
#include "dns/response_parser.h"
#include "net/event_loop.h"
#include "net/interrupt.h"
#include "net/socket.h"
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
  byte_reader reader(message);  // zero-extended: a message shorter than its ID reads zeros
  const std::uint16_t low = reader.u8();
  return static_cast<std::uint16_t>(low | reader.u8() << 8);
}

using steady = std::chrono::steady_clock;

// Waits until `descriptor` is ready for `events` or `deadline` (none: no limit) has passed;
// looks at least once. False when the time ran out or a stop signal came.
bool wait_for(int descriptor, short events, const std::optional<steady::time_point>& deadline) {
  for (;;) {
    if (interrupt_signal() != 0) return false;
    int timeout_ms = -1;
    if (deadline) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - steady::now()).count();
      timeout_ms = static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
    }
    pollfd entries[2] = {{descriptor, events, 0}, {interrupt_descriptor(), POLLIN, 0}};
    const int count = ::poll(entries, 2, timeout_ms);
    if (count == -1 && errno == EINTR) continue;  // another signal; a stop signal shows above
    if (count <= 0) return false;
    if (entries[0].revents != 0) return interrupt_signal() == 0;
  }
}

}  // namespace

void stamp_sending(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to) {
  query.timestamp = now_timestamp();
  query.server = to.text();
  transaction.server_port = to.port();
  transaction.sent_monotonic_us = monotonic_micros();
}

name_outcome classify_attempt(const dns_packet_transaction& transaction, bool answered) {
  if (transaction.sent_length == 0 || transaction.received_length == 0) return name_outcome::no_reply;
  if (!answered) return name_outcome::failed;
  // A reply shorter than its header can still pass the parser, which reads zeros past the end.
  const auto header = read_message_header(transaction.received);
  if (!header) return name_outcome::failed;
  // A truncated reply may lack records that exist: it cannot say "no data".
  if (header->tc) return name_outcome::failed;
  const std::uint16_t rcode = full_rcode(header->rcode, find_opt_record(transaction.additional));
  if (rcode == k_rcode_nxdomain) return name_outcome::empty;
  if (rcode != k_rcode_noerror) return name_outcome::failed;
  return transaction.answers.empty() ? name_outcome::empty : name_outcome::answered;
}

int attempt_wait_ms(const input_params& config) {
  if (config.timeout_ms >= 0) return config.timeout_ms;
  if (config.timeout < 0) return -1;  // as select() refusing a negative limit: wait for a datagram
  return static_cast<int>(std::min<std::int64_t>(std::int64_t{config.timeout} * 1000, INT_MAX));
}

bool exchange(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to, int wait_ms) {
  qv::socket link = send_query(transaction, query, to);
  if (link.descriptor() == -1) return false;
  if (!wait_readable(static_cast<int>(link.descriptor()), wait_ms)) return false;
  return take_reply(transaction, query, &to.text(), link);
}

qv::socket send_query(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to) {
  transaction.clear();
  qv::socket link;
  if (query.packet.empty()) return link;
  stamp_sending(transaction, query, to);
  if (!link.open(k_kind_datagram, static_cast<std::uint32_t>(to.family()))) return link;
  transaction.sent = query.packet;
  if (!link.send_to(transaction.sent.data(), transaction.sent.size(), to.data(), to.size())) {
    transaction.sent_length = 0;
    link.close();
    return link;
  }
  transaction.sent_length = static_cast<std::uint32_t>(transaction.sent.size());
  return link;
}

qv::socket send_query(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
                      std::uint16_t port) {
  if (server == nullptr) {
    transaction.clear();
    return qv::socket();
  }
  return send_query(transaction, query, server_address::ipv4(*server, port));
}

bool take_reply(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const std::string* server,
                qv::socket& link) {
  std::span<std::uint8_t> buffer = receive_buffer();
  const std::uint32_t count = link.read_datagram(buffer.data(), buffer.size());
  return accept_reply(transaction, query, server, buffer.first(count));
}

bool accept_reply(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const std::string* server,
                  std::span<const std::uint8_t> datagram) {
  transaction.received_length = static_cast<std::uint32_t>(datagram.size());
  if (transaction.received_length == 0) return false;  // an empty datagram counts as none
  transaction.received = datagram;
  transaction.received_at = now_timestamp();
  if (transaction.sent_monotonic_us >= 0) transaction.round_trip_us = monotonic_micros() - transaction.sent_monotonic_us;

  // A reply with a foreign ID is still parsed, so its records are reported; the ID decides
  // only whether the attempt is repeated.
  const std::uint16_t query_id = raw_id(query.packet);
  std::uint16_t reply_id = static_cast<std::uint16_t>(~query_id);
  const unsigned parsed = parse_response(server, transaction.received_at, transaction.received, reply_id,
                                         transaction.questions, transaction.answers,
                                         transaction.authority, transaction.additional);
  return parsed != 0 && reply_id == query_id;
}

bool truncated_reply(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query) {
  if (transaction.received_length == 0) return false;
  const auto header = read_message_header(transaction.received);
  return header && header->tc && raw_id(transaction.received) == raw_id(query.packet);
}

tcp_exchange start_tcp_query(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to) {
  transaction.clear();
  transaction.transport = exchange_transport::tcp;
  tcp_exchange exchange;
  if (query.packet.empty()) return exchange;
  // The time of sending is when the connection starts: the round trip covers connecting too.
  stamp_sending(transaction, query, to);
  exchange.start(to, query.packet);
  return exchange;
}

bool finish_tcp_query(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const server_address& to,
                      const tcp_exchange& exchange) {
  if (exchange.query_written()) {
    transaction.sent = query.packet;
    transaction.sent_length = static_cast<std::uint32_t>(transaction.sent.size());
  }
  switch (exchange.outcome()) {
    case tcp_outcome::reply:
      return accept_reply(transaction, query, &to.text(), exchange.reply());
    case tcp_outcome::closed:
    case tcp_outcome::zero_length:
      transaction.fault = stream_fault::broken;
      return false;
    case tcp_outcome::pending:
      transaction.fault = stream_fault::timed_out;
      return false;
    default:
      return false;  // nothing sent: no connection, or it broke while the query was written
  }
}

bool exchange_over_tcp(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to,
                       int wait_ms) {
  std::optional<steady::time_point> deadline;
  if (wait_ms >= 0) deadline = steady::now() + std::chrono::milliseconds(wait_ms);
  tcp_exchange exchange = start_tcp_query(transaction, query, to);
  while (exchange.want() != tcp_want::done && wait_for(exchange.descriptor(), exchange.poll_events(), deadline))
    exchange.step();
  return finish_tcp_query(transaction, query, to, exchange);
}
