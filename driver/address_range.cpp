#include "driver/address_range.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include "params/arg_list.h"

namespace {

address_range fault(std::string why) {
  address_range range;
  range.fault = std::move(why);
  return range;
}

}  // namespace

std::optional<address_range> read_address_range(std::string_view line, bool ipv6) {
  const auto slash = line.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const std::string address(line.substr(0, slash));
  const int bits = ipv6 ? 128 : 32;
  std::int64_t prefix = -1;
  if (!read_strict_number(line.substr(slash + 1), prefix) || prefix < 0 || prefix > bits)
    return fault("prefix out of range");
  address_range range;
  range.ipv6 = ipv6;
  if (::inet_pton(ipv6 ? AF_INET6 : AF_INET, address.c_str(), range.first.data()) != 1)
    return fault(ipv6 ? "not an IPv6 address" : "not an IPv4 address");
  if (ipv6 && prefix < k_shortest_ipv6_prefix) return fault("more than 2^24 addresses: a prefix shorter than /104");
  // Host bits: every bit after the prefix must be zero.
  for (int bit = static_cast<int>(prefix); bit < bits; ++bit)
    if ((range.first[static_cast<std::size_t>(bit / 8)] >> (7 - bit % 8)) & 1) return fault("host bits set beyond the prefix");
  range.count = std::uint64_t{1} << (bits - prefix);
  return range;
}

std::string range_address(const address_range& range, std::uint64_t index) {
  std::array<std::uint8_t, 16> bytes = range.first;
  // Add the index to the last bytes: never more than 32 bits of them (a /0 of IPv4, a /104).
  const std::size_t end = range.ipv6 ? 16 : 4;
  std::uint64_t carry = index;
  for (std::size_t i = end; i-- > 0 && carry != 0;) {
    carry += bytes[i];
    bytes[i] = static_cast<std::uint8_t>(carry & 0xFF);
    carry >>= 8;
  }
  char text[INET6_ADDRSTRLEN] = {};
  ::inet_ntop(range.ipv6 ? AF_INET6 : AF_INET, bytes.data(), text, sizeof text);
  return text;
}
