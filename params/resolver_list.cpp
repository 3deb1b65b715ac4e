#include "params/resolver_list.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>

namespace {

constexpr std::string_view k_blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(k_blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(k_blanks) - first + 1);
}

// The text of one line before a comment that follows a blank.
std::string_view without_comment(std::string_view line) {
  for (std::size_t at = line.find('#'); at != std::string_view::npos; at = line.find('#', at + 1))
    if (at == 0 || k_blanks.find(line[at - 1]) != std::string_view::npos) return line.substr(0, at);
  return line;
}

// The whole text: inet_pton would stop at a NUL byte and take what comes before it.
bool is_address(int family, std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return false;
  const std::string copy(text);
  std::uint8_t bytes[sizeof(in6_addr)];
  return ::inet_pton(family, copy.c_str(), bytes) == 1;
}

// A port is 1 to 65535, in decimal digits only.
std::optional<std::uint16_t> port_of(std::string_view text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || value == 0 || value > 65535)
    return std::nullopt;
  return static_cast<std::uint16_t>(value);
}

}  // namespace

std::optional<resolver_entry> read_resolver_address(std::string_view text) {
  if (text.starts_with('[')) {  // [IPv6] or [IPv6]:port
    const auto close = text.find(']');
    if (close == std::string_view::npos) return std::nullopt;
    const std::string_view address = text.substr(1, close - 1);
    const std::string_view rest = text.substr(close + 1);
    if (!is_address(AF_INET6, address)) return std::nullopt;
    if (rest.empty()) return resolver_entry{std::string(address), std::nullopt, true};
    const auto port = rest.starts_with(':') ? port_of(rest.substr(1)) : std::nullopt;
    if (!port) return std::nullopt;
    return resolver_entry{std::string(address), port, true};
  }
  if (is_address(AF_INET6, text)) return resolver_entry{std::string(text), std::nullopt, true};
  const auto colon = text.find(':');
  const std::string_view address = text.substr(0, colon);
  if (!is_address(AF_INET, address)) return std::nullopt;
  if (colon == std::string_view::npos) return resolver_entry{std::string(address), std::nullopt, false};
  const auto port = port_of(text.substr(colon + 1));
  if (!port) return std::nullopt;
  return resolver_entry{std::string(address), port, false};
}

resolver_list read_resolver_list(std::string_view text) {
  resolver_list list;
  std::size_t number = 0;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const std::string_view raw = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    ++number;
    const std::string_view line = trimmed(raw);
    if (line.empty() || line.starts_with('#')) continue;
    const std::string_view address = trimmed(without_comment(line));
    const auto entry = read_resolver_address(address);
    if (!entry) {
      list.entries.clear();
      list.bad_line = number;
      list.bad_text = std::string(line);
      return list;
    }
    if (std::find(list.entries.begin(), list.entries.end(), *entry) == list.entries.end())
      list.entries.push_back(*entry);
  }
  return list;
}
