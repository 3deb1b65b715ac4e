// Fuzz target: a reply's OPT record. Bytes 0-1 are its class (the UDP size), 2-5 its TTL
// (extended code, version, flags), byte 6 the header's response code; the rest is its data, in
// an exact-size message. Checks: the options read are the front of the data, each whole, and
// what is left could not be one; the response code joins both parts; and the OPT record a
// query would carry reads back through the parser as what it offered.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "dns/edns.h"
#include "dns/response_parser.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

void check_options(const DNS_RES_RECORD& record, const opt_record& opt) {
  std::vector<std::uint8_t> front;
  for (const edns_option& option : opt.options) {
    const auto length = static_cast<std::uint16_t>(option.data.size());
    front.insert(front.end(), {static_cast<std::uint8_t>(option.code >> 8), static_cast<std::uint8_t>(option.code),
                               static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length)});
    front.insert(front.end(), option.data.begin(), option.data.end());
  }
  check(front.size() <= record.rdata.size() && std::equal(front.begin(), front.end(), record.rdata.begin()));
  const std::size_t left = record.rdata.size() - front.size();
  if (left >= 4) {  // the next option claims more than is left
    const std::size_t claimed = record.rdata[front.size() + 2] << 8 | record.rdata[front.size() + 3];
    check(claimed > left - 4);
  }
}

// A reply holding only the OPT record that `request` makes, read back by the parser.
void check_round_trip(const edns_request& request) {
  std::vector<std::uint8_t> message = {0, 0, 0x81, 0x80, 0, 0, 0, 0, 0, 0, 0, 1};
  const auto wire = opt_record_wire(request);
  message.insert(message.end(), wire.begin(), wire.end());
  dns_packet_transaction t;
  std::uint16_t id = 0;
  check(parse_response(nullptr, 0, message, id, t.questions, t.answers, t.authority, t.additional) == message.size());
  const auto opt = find_opt_record(t.additional);
  check(opt && opt->udp_size == request.udp_size && opt->dnssec_ok == request.dnssec_ok);
  check(opt->extended_rcode == 0 && opt->version == 0 && opt->options.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 7) return 0;
  DNS_RES_RECORD record;
  record.type = k_type_opt;
  record.class_ = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
  record.ttl = static_cast<std::uint32_t>(data[2]) << 24 | data[3] << 16 | data[4] << 8 | data[5];
  record.rdata.assign(data + 7, data + std::min<std::size_t>(size, 7 + 65535));
  record.rdlength = static_cast<std::uint16_t>(record.rdata.size());
  record.packet = shared_bytes(record.rdata);

  const opt_record opt = read_opt_record(record);
  check(opt.udp_size == record.class_ && opt.extended_rcode == data[2] && opt.version == data[3]);
  check(opt.dnssec_ok == ((data[4] & 0x80) != 0));
  check_options(record, opt);

  const std::uint8_t header_rcode = data[6] & 0x0F;
  check(full_rcode(header_rcode, opt) == (opt.extended_rcode << 4 | header_rcode));
  check(full_rcode(header_rcode, std::nullopt) == header_rcode);
  check(find_opt_record(std::vector<DNS_RES_RECORD>{record}) == opt);

  check_round_trip({record.class_, opt.dnssec_ok});
  return 0;
}
