#include "dns/edns.h"

#include "dns/byte_reader.h"

namespace {

// The TTL field of an OPT record: extended code, version, then the flags word.
constexpr unsigned k_extended_rcode_shift = 24;
constexpr unsigned k_version_shift = 16;
constexpr std::uint32_t k_flag_do = 0x8000;
constexpr unsigned k_header_rcode_bits = 4;

void put16(std::vector<std::uint8_t>& out, std::uint16_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

}  // namespace

std::vector<std::uint8_t> opt_record_wire(const edns_request& request) {
  std::vector<std::uint8_t> wire;
  wire.push_back(0);  // the root name
  put16(wire, k_type_opt);
  put16(wire, request.udp_size);
  const std::uint32_t ttl = request.dnssec_ok ? k_flag_do : 0;  // extended code 0, version 0
  put16(wire, static_cast<std::uint16_t>(ttl >> 16));
  put16(wire, static_cast<std::uint16_t>(ttl & 0xFFFF));
  put16(wire, 0);  // no options
  return wire;
}

opt_record read_opt_record(const DNS_RES_RECORD& record) {
  opt_record opt;
  opt.udp_size = record.class_;
  opt.extended_rcode = static_cast<std::uint8_t>(record.ttl >> k_extended_rcode_shift);
  opt.version = static_cast<std::uint8_t>(record.ttl >> k_version_shift);
  opt.dnssec_ok = (record.ttl & k_flag_do) != 0;
  byte_reader reader(record.rdata);
  // Each option is a code, a length and that many bytes (section 6.1.2). One that claims more
  // bytes than are left is not shown at all: a part of it would read as a whole option.
  while (reader.remaining() >= 4) {
    edns_option option;
    option.code = reader.u16();
    const std::uint16_t length = reader.u16();
    if (length > reader.remaining()) break;
    reader.append_to(option.data, length);
    opt.options.push_back(std::move(option));
  }
  return opt;
}

std::optional<opt_record> find_opt_record(std::span<const DNS_RES_RECORD> additional) {
  for (const DNS_RES_RECORD& record : additional)
    if (record.type == k_type_opt) return read_opt_record(record);
  return std::nullopt;
}

std::uint16_t full_rcode(std::uint8_t header_rcode, const std::optional<opt_record>& opt) {
  const std::uint16_t low = header_rcode & 0x0F;
  return opt ? static_cast<std::uint16_t>(opt->extended_rcode << k_header_rcode_bits | low) : low;
}
