// Fuzz target: any bytes as a -roots hints file. Checks:
// - a bad line lies within the text;
// - every address is an IPv4 or IPv6 address in its own characters;
// - the addresses written back one a line read back as they were, as A and AAAA lines too;
// - CR LF line ends, and a comment and an NS line in front, change nothing but the line number.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "params/root_hints.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

bool same(const root_hints& a, const root_hints& b, std::size_t lines_before_b) {
  return a.addresses == b.addresses && (a.bad_line == 0 ? b.bad_line == 0 : b.bad_line == a.bad_line + lines_before_b);
}

bool ipv6(const std::string& address) {
  unsigned char bytes[sizeof(in6_addr)];
  return ::inet_pton(AF_INET6, address.c_str(), bytes) == 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const root_hints hints = read_root_hints(text);

  check(hints.bad_line <= static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
  std::string alone, records;
  for (const std::string& address : hints.addresses) {
    check(!address.empty() && address.find_first_not_of("0123456789abcdefABCDEF:.") == std::string::npos);
    alone += address + '\n';
    records += "x.root-servers.test. 3600000 IN " + std::string(ipv6(address) ? "AAAA " : "A ") + address + '\n';
  }
  const root_hints from_alone = read_root_hints(alone), from_records = read_root_hints(records);
  check(from_alone.bad_line == 0 && from_alone.addresses == hints.addresses);
  check(from_records.bad_line == 0 && from_records.addresses == hints.addresses);

  std::string crlf;
  for (const char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  check(same(hints, read_root_hints(crlf), 0));
  check(same(hints, read_root_hints("; hints\n. 3600000 NS x.root-servers.test.\n" + std::string(text)), 2));
  return 0;
}
