#include "net/query_transaction.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>
#include <span>

#include "dns/message_header.h"
#include "dns/response_parser.h"
#include "net/event_loop.h"
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
  const std::uint16_t low = message.empty() ? 0 : message[0];
  const std::uint16_t high = message.size() < 2 ? 0 : message[1];
  return static_cast<std::uint16_t>(low | (high << 8));
}

constexpr std::uint8_t k_rcode_noerror = 0;
constexpr std::uint8_t k_rcode_nxdomain = 3;

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
  const std::uint32_t count = link.read_datagram(buffer.data(), buffer.size());
  return accept_reply(transaction, query, server, buffer.first(count));
}

bool accept_reply(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const std::string* server,
                  std::span<const std::uint8_t> datagram) {
  transaction.received_length = static_cast<std::uint32_t>(datagram.size());
  if (transaction.received_length == 0) return false;  // an empty datagram counts as none
  transaction.received = datagram;
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
