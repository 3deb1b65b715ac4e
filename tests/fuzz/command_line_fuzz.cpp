// Fuzz target for the number reader and the -filter matcher. The first input line is the number
// text and the -filter values (tab-separated); the other lines are piped names. Properties:
// - a refused number leaves the field alone; case and surrounding blanks never change a number;
//   plain decimal and 0x-hex texts read as their value;
// - an empty line is never accepted; case never changes the verdict;
// - "a|b" accepts exactly what "a" or "b" accepts, and so do two separate -filter values;
// - "*" accepts every line with a name part; "*text*" accepts exactly the names holding text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "driver/filename_filter.h"
#include "params/arg_list.h"

namespace {

constexpr std::int32_t k_untouched = 0x5a5a5a5a;
constexpr std::size_t k_max_lines = 64;  // keeps one run cheap whatever the input length

void check(bool holds) {
  if (!holds) std::abort();
}

std::string upper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
  return out;
}

bool all_of(std::string_view text, std::string_view allowed) {
  return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

void check_number(std::string_view text) {
  std::int32_t value = k_untouched;
  const bool read = read_number(text, value);
  if (!read) check(value == k_untouched);

  std::int32_t again = k_untouched;
  check(read_number(" \t" + upper(text) + "\r\n", again) == read && again == value);

  const std::string_view digits = text.substr(text.starts_with('+') || text.starts_with('-') ? 1 : 0);
  if (digits.size() <= 9 && all_of(digits, "0123456789")) check(read && value == std::stol(std::string(text)));
  if (text.starts_with("0x") && text.size() <= 10 && all_of(text.substr(2), "0123456789abcdef"))
    check(read && value == static_cast<std::int32_t>(std::stoul(std::string(text.substr(2)), nullptr, 16)));
}

std::vector<std::string_view> split(std::string_view text, char delimiter, std::size_t limit) {
  std::vector<std::string_view> parts;
  while (parts.size() < limit) {
    const auto end = text.find(delimiter);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return parts;
}

// The filter lists the checks compare, each built once per input rather than once per line.
struct filter_sets {
  explicit filter_sets(const std::vector<std::string>& values)
      : given(build_filters(values)), star(build_filters({"*"})), first(build_filters({values[0]})) {
    if (values.size() >= 2) {
      second = build_filters({values[1]});
      both = build_filters({values[0], values[1]});
      // Joined by "|", a piece holding "," is no longer split on it: only plain pieces compare.
      joinable = values[0].find_first_of("|,") == std::string::npos &&
                 values[1].find_first_of("|,") == std::string::npos && !values[0].empty() && !values[1].empty();
      if (joinable) joined = build_filters({values[0] + "|" + values[1]});
    }
    const std::string& text = values[0];
    plain = !text.empty() && text.find_first_of("*|,:/") == std::string::npos;
    if (plain) {
      holding = build_filters({"*" + text + "*"});
      text_lower = to_lower_ascii(text);
    }
  }
  std::vector<filename_filter> given, star, first, second, both, joined, holding;
  bool joinable = false, plain = false;
  std::string text_lower;
};

void check_filter(const filter_sets& sets, bool two_values, std::string_view line) {
  const bool verdict = filter_accepts(sets.given, line);
  if (line.empty()) check(!verdict);
  check(filter_accepts(sets.given, upper(line)) == verdict);

  const bool has_name = !line.empty() && line.back() != '/';
  check(filter_accepts(sets.star, line) == has_name);
  if (two_values) {
    const bool either = filter_accepts(sets.first, line) || filter_accepts(sets.second, line);
    check(filter_accepts(sets.both, line) == either);
    if (sets.joinable) check(filter_accepts(sets.joined, line) == either);
  }
  if (sets.plain && line.find('/') == std::string_view::npos) {
    const bool holds = to_lower_ascii(line).find(sets.text_lower) != std::string::npos;
    check(filter_accepts(sets.holding, line) == holds);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto lines = split(input, '\n', k_max_lines);
  check_number(lines[0]);
  std::vector<std::string> values;
  for (auto value : split(lines[0], '\t', 4)) values.emplace_back(value);
  const filter_sets sets(values);
  for (std::size_t i = 1; i < lines.size(); ++i) check_filter(sets, values.size() >= 2, lines[i]);
  return 0;
}
