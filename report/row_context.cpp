#include "report/row_context.h"

#include "dns/edns.h"
#include "dns/message_header.h"

std::string reply_rcode_text(const dns_packet_transaction* transaction) {
  if (transaction == nullptr || transaction->received_length == 0) return {};
  const auto header = read_message_header(transaction->received);
  if (!header) return {};
  const std::uint16_t rcode = full_rcode(header->rcode, find_opt_record(transaction->additional));
  const std::string_view name = rcode_name(rcode);
  return name.empty() ? std::to_string(rcode) : std::string(name);
}

why_values why_of(const row_context& context) {
  return {std::to_string(context.line), context.asked, reply_rcode_text(context.transaction), context.outcome};
}
