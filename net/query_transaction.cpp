#include "net/query_transaction.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <span>
#include <vector>

#include "dns/message_header.h"
#include "dns/response_parser.h"
#include "net/socket.h"
#include "report/hex_view.h"
#include "report/table_writer.h"
#include "report/xml_writer.h"
#include "time/clock.h"

namespace {

// The largest datagram UDP can carry, so no reply is ever cut short by the read.
constexpr std::size_t k_receive_capacity = 65536;

constexpr std::uint32_t k_kind_datagram = 1;

// The message ID as its two bytes stand, read low byte first like DNS_RES_RECORD::id.
// Comparing these values compares the raw bytes, whatever order the server assumed.
std::uint16_t raw_id(const std::vector<std::uint8_t>& message) {
  const std::uint16_t low = message.empty() ? 0 : message[0];
  const std::uint16_t high = message.size() < 2 ? 0 : message[1];
  return static_cast<std::uint16_t>(low | (high << 8));
}

constexpr std::uint8_t k_rcode_noerror = 0;
constexpr std::uint8_t k_rcode_nxdomain = 3;

void write_row(std::ostream& out, DNS_RES_RECORD& record, const char* comment, const char* status,
               input_params& config, const json_row_context& context) {
  if (config.json)
    write_json_row(record, out, comment, status, context, config);
  else if (config.xml)
    write_xml_entry(record, out, config, status);  // the XML entry has no comment field
  else
    write_table_row(record, out, comment, status, config);
}

void write_section(std::ostream& out, std::vector<DNS_RES_RECORD>& records, const char* comment,
                   input_params& config, const json_row_context& context) {
  for (DNS_RES_RECORD& record : records) write_row(out, record, comment, k_status_success, config, context);
}

name_outcome classify(const dns_packet_transaction& transaction, bool answered) {
  if (transaction.sent_length == 0 || transaction.received_length == 0) return name_outcome::no_reply;
  if (!answered) return name_outcome::failed;
  // A reply shorter than its header can still pass the parser, which reads zeros past the end.
  const auto header = read_message_header(transaction.received);
  if (!header) return name_outcome::failed;
  if (header->rcode == k_rcode_nxdomain) return name_outcome::empty;
  if (header->rcode != k_rcode_noerror) return name_outcome::failed;
  return transaction.answers.empty() ? name_outcome::empty : name_outcome::answered;
}

}  // namespace

name_outcome run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                       input_params& config, const query_origin& origin) {
  // A negative retry count switches the query off: nothing is sent, not even a row written.
  if (config.retry < 0) return name_outcome::no_reply;
  for (std::int32_t attempt = 0;; ++attempt) {
    transaction.clear();
    const bool answered = exchange(transaction, query, &config.server, config.timeout, config.port);
    report_outcome(out, transaction, query, config,
                   {origin.line, origin.asked, attempt + 1, query.timestamp, &transaction});
    config.heading_pending = 0;
    if (config.verbose && !config.xml && !config.json) dump_attempt(out, transaction);
    if (answered) return classify(transaction, answered);
    // The pause follows every failed attempt, the last one included.
    if (config.delay != 0) pause_seconds(static_cast<unsigned>(config.delay));
    if (attempt >= config.retry) return classify(transaction, answered);
  }
}

bool exchange(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
              std::int32_t timeout_seconds, std::uint16_t port) {
  transaction.clear();
  if (server == nullptr || query.packet.empty()) return false;
  const std::uint16_t query_id = raw_id(query.packet);

  // Fresh and zero-filled for every attempt, like the socket: nothing carries over.
  std::vector<std::uint8_t> buffer(k_receive_capacity, 0);
  qv::socket link;
  query.timestamp = now_timestamp();
  query.server = *server;
  if (!link.open(k_kind_datagram, AF_INET)) return false;

  // Only dotted IPv4 text is meant. The result is deliberately not checked: no name
  // resolution is attempted, and an unusable text simply fails or times out.
  const std::uint32_t address = ::inet_addr(server->c_str());
  transaction.sent = query.packet;
  if (!link.send_to(transaction.sent.data(), transaction.sent.size(), address, port)) {
    transaction.sent_length = 0;
    return false;
  }
  transaction.sent_length = static_cast<std::uint32_t>(transaction.sent.size());

  // The sender is read back but not compared with the server: the first datagram that
  // reaches this socket is the reply.
  std::uint32_t sender_address = 0;
  std::uint16_t sender_port = 0;
  transaction.received_length =
      link.receive_from(buffer.data(), buffer.size(), sender_address, sender_port, timeout_seconds, true);
  if (transaction.received_length == 0) return false;
  const auto received = std::span<const std::uint8_t>(buffer.data(), transaction.received_length);
  transaction.received.assign(received.begin(), received.end());
  transaction.received_at = now_timestamp();

  // A reply with a foreign ID is still parsed, so its records are reported; the ID decides
  // only whether the attempt is repeated.
  std::uint16_t reply_id = static_cast<std::uint16_t>(~query_id);
  const unsigned parsed = parse_response(server, transaction.received_at, received, reply_id,
                                         transaction.questions, transaction.answers,
                                         transaction.authority, transaction.additional);
  return parsed != 0 && reply_id == query_id;
}

int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, const json_row_context& context) {
  // Without a parsed reply the row is the query record itself: name, type, server, ID and
  // the time of sending.
  if (transaction.sent_length == 0) {
    write_row(out, query, k_section_question, k_status_sock_err, config, context);
    return 1;
  }
  if (transaction.received_length == 0) {
    write_row(out, query, k_section_question, k_status_timeout, config, context);
    return 1;
  }
  const bool answered = !transaction.answers.empty();
  if (transaction.questions.empty() && !answered && transaction.authority.empty() &&
      transaction.additional.empty()) {
    write_row(out, query, k_section_question, k_status_unkresp, config, context);
    return 1;
  }
  // Questions are shown only when they went unanswered, and never for a CNAME query, whose
  // empty answer is a meaningful "no alias" rather than a failure.
  if (!answered && query.type != k_type_cname) {
    for (DNS_RES_RECORD& question : transaction.questions)
      write_row(out, question, k_section_question, k_status_invalid, config, context);
  }
  write_section(out, transaction.answers, k_section_answer, config, context);
  write_section(out, transaction.authority, k_section_authority, config, context);
  write_section(out, transaction.additional, k_section_additions, config, context);
  return 1;
}
