// -cidr: an input line "ADDRESS/PREFIX" stands for every address of the range, produced one at a
// time as they are asked, so a range of any size costs no memory.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The most addresses one IPv6 line may stand for: a /104.
inline constexpr int k_shortest_ipv6_prefix = 104;

struct address_range {
  std::array<std::uint8_t, 16> first{};  // IPv4 in the first four bytes
  bool ipv6 = false;
  std::uint64_t count = 0;
  std::string fault;  // why the line is no range zib asks: then count is 0
};

// nullopt for a line without "/", which is asked as it is. `ipv6` for -ip6 and -ip6_pipe.
std::optional<address_range> read_address_range(std::string_view line, bool ipv6);
// The address `index` of the range (from 0), as text.
std::string range_address(const address_range& range, std::uint64_t index);
