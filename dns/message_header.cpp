#include "dns/message_header.h"

#include <algorithm>

#include "dns/byte_reader.h"

namespace {

struct rcode_info {
  std::uint16_t code;
  std::string_view name;
};

// IANA's DNS RCODEs registry, in code order. To add a code, add its row in code order; codes
// left out have no name and callers show the number. 16 is BADVERS here, never BADSIG: a
// header's own four bits cannot reach it, and OPT (where it lives) names it so.
constexpr rcode_info k_rcodes[] = {
    {0, "NOERROR"},   {1, "FORMERR"},  {2, "SERVFAIL"}, {3, "NXDOMAIN"}, {4, "NOTIMP"},
    {5, "REFUSED"},   {6, "YXDOMAIN"}, {7, "YXRRSET"},  {8, "NXRRSET"},  {9, "NOTAUTH"},
    {10, "NOTZONE"},  {11, "DSOTYPENI"}, {16, "BADVERS"}, {17, "BADKEY"}, {18, "BADTIME"},
    {19, "BADMODE"},  {20, "BADNAME"}, {21, "BADALG"},   {22, "BADTRUNC"}, {23, "BADCOOKIE"},
};

// rcode_name's binary search needs the codes strictly rising (see k_rcodes above).
static_assert(std::adjacent_find(std::begin(k_rcodes), std::end(k_rcodes),
                                 [](const rcode_info& a, const rcode_info& b) { return a.code >= b.code; }) ==
                  std::end(k_rcodes),
              "k_rcodes must be in strictly rising code order");

}  // namespace

std::optional<message_header> read_message_header(std::span<const std::uint8_t> message) {
  byte_reader reader(message);
  message_header header;
  header.id = reader.u16();
  const std::uint8_t high = reader.u8();
  const std::uint8_t low = reader.u8();
  header.qr = (high & 0x80) != 0;
  header.opcode = static_cast<std::uint8_t>(high >> 3 & 0x0F);
  header.aa = (high & 0x04) != 0;
  header.tc = (high & 0x02) != 0;
  header.rd = (high & 0x01) != 0;
  header.ra = (low & 0x80) != 0;
  header.ad = (low & 0x20) != 0;
  header.cd = (low & 0x10) != 0;
  header.rcode = static_cast<std::uint8_t>(low & 0x0F);
  header.qdcount = reader.u16();
  header.ancount = reader.u16();
  header.nscount = reader.u16();
  header.arcount = reader.u16();
  if (reader.overran()) return std::nullopt;  // a cut-short header would be half zeros
  return header;
}

std::string_view rcode_name(std::uint16_t rcode) {
  const auto* end = std::end(k_rcodes);
  const auto* it = std::lower_bound(std::begin(k_rcodes), end, rcode,
                                    [](const rcode_info& row, std::uint16_t c) { return row.code < c; });
  return (it != end && it->code == rcode) ? it->name : std::string_view();
}

std::optional<std::uint16_t> rcode_code(std::string_view name) {
  const auto same = [name](std::string_view row) {
    return row.size() == name.size() && std::equal(row.begin(), row.end(), name.begin(), [](char a, char b) {
             return a == (b >= 'a' && b <= 'z' ? static_cast<char>(b - 32) : b);
           });
  };
  for (const rcode_info& row : k_rcodes)
    if (same(row.name)) return row.code;
  return std::nullopt;
}
