// -resolvers FILE: the list of servers a run spreads its queries over, one a line. A line holds
// an IPv4 or IPv6 address, optionally with a port ("192.0.2.1:5353", "[2001:db8::1]:5353"; a
// bare IPv6 address takes no port), with blanks around it and, after a blank, an optional
// "# comment". Blank lines and lines starting with "#" are skipped; an address given twice (with
// the same port) counts once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct resolver_entry {
  std::string address;                // as written, without brackets or port: the rows show it
  std::optional<std::uint16_t> port;  // none: -port, or 53
  bool ipv6 = false;

  bool operator==(const resolver_entry&) const = default;
};

// What reading the list gave: the resolvers in file order, or the first line that is not one.
struct resolver_list {
  std::vector<resolver_entry> entries;
  std::size_t bad_line = 0;  // 1-based; 0: none
  std::string bad_text;      // that line, blanks around it removed
};

resolver_list read_resolver_list(std::string_view text);

// One line's address, or nullopt when it is not one (blanks around it already removed).
std::optional<resolver_entry> read_resolver_address(std::string_view text);
