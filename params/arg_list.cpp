#include "params/arg_list.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace {

char lower_char(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool same_switch(std::string_view arg, std::string_view name) {
  return arg.size() == name.size() &&
         std::equal(arg.begin(), arg.end(), name.begin(),
                    [](char a, char b) { return lower_char(a) == lower_char(b); });
}

arg_list::iterator find_switch(arg_list& args, std::string_view name) {
  return std::find_if(args.begin(), args.end(),
                      [name](const std::string& arg) { return same_switch(arg, name); });
}

std::string_view trim_blanks(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return 99;
}

// Reads the leading digits of `text` in `base`; digits past 32 bits wrap, as an unsigned
// C conversion cast to int would. No digit at all is a refusal.
bool read_radix(std::string_view text, unsigned base, std::int32_t& out) {
  std::uint32_t value = 0;
  std::size_t used = 0;
  for (char c : text) {
    const int d = digit_value(c);
    if (d >= static_cast<int>(base)) break;
    value = value * base + static_cast<std::uint32_t>(d);
    ++used;
  }
  if (used == 0) return false;
  out = static_cast<std::int32_t>(value);
  return true;
}

}  // namespace

std::string to_lower_ascii(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = lower_char(c);
  return out;
}

bool take_switch(arg_list& args, std::string_view name) {
  const auto it = find_switch(args, name);
  if (it == args.end()) return false;
  args.erase(it);
  return true;
}

std::optional<std::string> take_value(arg_list& args, std::string_view name) {
  const auto it = find_switch(args, name);
  if (it == args.end() || it + 1 == args.end()) return std::nullopt;
  std::string value = std::move(*(it + 1));
  args.erase(it, it + 2);
  return value;
}

bool read_number(std::string_view text, std::int32_t& out) {
  const std::string number = to_lower_ascii(trim_blanks(text));
  // "x" and "o" are searched anywhere, not only after a leading 0, so "0x1e", "x1e" and
  // "o17" all read; whatever precedes the letter is ignored.
  if (const auto x = number.find('x'); x != std::string::npos)
    return read_radix(std::string_view(number).substr(x + 1), 16, out);
  if (const auto o = number.find('o'); o != std::string::npos)
    return read_radix(std::string_view(number).substr(o + 1), 8, out);
  if (number.empty()) return false;
  const char first = number.front();
  if (!(first >= '0' && first <= '9') && first != '+' && first != '-') return false;
  // atoi rules: leading sign, digits up to the first non-digit, the rest ignored.
  out = static_cast<std::int32_t>(std::strtol(number.c_str(), nullptr, 10));
  return true;
}

bool read_whole_number(std::string_view text, std::int32_t& out) {
  const std::string number = to_lower_ascii(trim_blanks(text));
  std::string_view digits = number;
  unsigned base = 10;
  bool negative = false;
  if (digits.starts_with("0x") || digits.starts_with("0o")) digits.remove_prefix(1);
  if (digits.starts_with("x") || digits.starts_with("o")) {
    base = digits.front() == 'x' ? 16 : 8;
    digits.remove_prefix(1);
  } else if (digits.starts_with("+") || digits.starts_with("-")) {
    negative = digits.front() == '-';
    digits.remove_prefix(1);
  }
  if (digits.empty()) return false;
  constexpr std::int64_t k_limit = std::int64_t{INT32_MAX} + 1;  // the magnitude of INT32_MIN
  std::int64_t value = 0;
  for (const char c : digits) {
    const int d = digit_value(c);
    if (d >= static_cast<int>(base)) return false;
    value = value * base + d;
    if (value > k_limit) return false;
  }
  if (negative) value = -value;
  if (value > INT32_MAX) return false;
  out = static_cast<std::int32_t>(value);
  return true;
}
