#include "dns/message_header.h"

#include <string_view>

#include "dns/byte_reader.h"

namespace {

constexpr std::size_t k_header_bytes = 12;

// To add a name, add its row; codes without a row print as their number.
struct rcode_row {
  std::uint8_t code;
  std::string_view name;
};
constexpr rcode_row k_rcode_names[] = {
    {0, "NOERROR"}, {1, "FORMERR"}, {2, "SERVFAIL"}, {3, "NXDOMAIN"}, {4, "NOTIMP"},    {5, "REFUSED"},
    {6, "YXDOMAIN"}, {7, "YXRRSET"}, {8, "NXRRSET"}, {9, "NOTAUTH"}, {10, "NOTZONE"}, {11, "DSOTYPENI"},
};

bool bit(std::uint8_t byte, std::uint8_t mask) { return (byte & mask) != 0; }

}  // namespace

std::optional<message_header> read_message_header(std::span<const std::uint8_t> message) {
  if (message.size() < k_header_bytes) return std::nullopt;
  byte_reader reader(message);
  message_header header;
  header.id = reader.u16();
  const std::uint8_t high = reader.u8();  // QR, OPCODE, AA, TC, RD
  const std::uint8_t low = reader.u8();   // RA, Z, AD, CD, RCODE
  header.qr = bit(high, 0x80);
  header.opcode = static_cast<std::uint8_t>(high >> 3 & 0x0F);
  header.aa = bit(high, 0x04);
  header.tc = bit(high, 0x02);
  header.rd = bit(high, 0x01);
  header.ra = bit(low, 0x80);
  header.ad = bit(low, 0x20);
  header.cd = bit(low, 0x10);
  header.rcode = static_cast<std::uint8_t>(low & 0x0F);
  header.qdcount = reader.u16();
  header.ancount = reader.u16();
  header.nscount = reader.u16();
  header.arcount = reader.u16();
  return header;
}

std::string rcode_name(std::uint8_t rcode) {
  for (const rcode_row& row : k_rcode_names)
    if (row.code == rcode) return std::string(row.name);
  return std::to_string(rcode);
}
