// The -filter line test for piped input. Each -filter value is lower-cased and split on "|"
// (else ",") into entries; a line is accepted when any entry matches its name part.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct filename_filter {
  std::string pattern;          // the piece as given, lower-cased
  std::string name_pattern;     // the piece before any ":", wildcards removed
  std::string second_pattern;   // the text after the first ":", wildcards removed
  std::uint8_t rooted = 0;      // name pattern starts with "/": tested against the folder part
  std::uint8_t match_all = 0;   // the piece is "*" alone
  std::uint8_t leading_wildcard = 0;
  std::uint8_t trailing_wildcard = 0;
  std::uint8_t has_second = 0;
  std::uint8_t second_set = 0;  // the second pattern is not "*" alone
  std::uint8_t second_leading_wildcard = 0;
  std::uint8_t second_trailing_wildcard = 0;
};

// One entry per piece of every value, in the order given.
std::vector<filename_filter> build_filters(const std::vector<std::string>& patterns);

// The line test: an empty line is refused, an empty list accepts everything else.
bool filter_accepts(const std::vector<filename_filter>& filters, std::string_view line);
