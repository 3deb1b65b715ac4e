// Fuzz target: any bytes as a -resolvers file. Checks:
// - a bad line empties the list, lies within the text and names a line that is neither blank nor
//   a comment, with no blank around it;
// - every resolver is an address of its family in its own characters, a port 1 to 65535, once;
// - written back one a line ("a", "a:p", "[a]", "[a]:p") the resolvers read back as they were;
// - CR LF line ends, and a blank and a comment line in front, change nothing but the line number.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "params/resolver_list.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

bool same(const resolver_list& a, const resolver_list& b, std::size_t lines_before_b) {
  return a.entries == b.entries && a.bad_text == b.bad_text &&
         (a.bad_line == 0 ? b.bad_line == 0 : b.bad_line == a.bad_line + lines_before_b);
}

void check_entry(const resolver_entry& entry) {
  const std::string_view allowed = entry.ipv6 ? "0123456789abcdefABCDEF:." : "0123456789.";
  check(!entry.address.empty() && entry.address.find_first_not_of(allowed) == std::string::npos);
  check(!entry.port || *entry.port != 0);
  const auto again = read_resolver_address(entry.address);
  check(again && again->address == entry.address && !again->port && again->ipv6 == entry.ipv6);
}

std::string written_back(const resolver_list& list) {
  std::string text;
  for (const resolver_entry& entry : list.entries) {
    text += entry.ipv6 && entry.port ? "[" + entry.address + "]" : entry.address;
    if (entry.port) text += ":" + std::to_string(*entry.port);
    text += '\n';
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const resolver_list list = read_resolver_list(text);

  if (list.bad_line != 0) {
    check(list.entries.empty());
    check(list.bad_line <= static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    check(!list.bad_text.empty() && !list.bad_text.starts_with('#'));
    check(std::string_view(" \t\r").find(list.bad_text.front()) == std::string_view::npos);
    check(std::string_view(" \t\r").find(list.bad_text.back()) == std::string_view::npos);
  }
  for (auto entry = list.entries.begin(); entry != list.entries.end(); ++entry) {
    check_entry(*entry);
    check(std::find(entry + 1, list.entries.end(), *entry) == list.entries.end());
  }
  check(read_resolver_list(written_back(list)).entries == list.entries);

  std::string crlf;
  for (const char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  check(same(list, read_resolver_list(crlf), 0));
  check(same(list, read_resolver_list(" \t\n# resolvers\n" + std::string(text)), 2));
  return 0;
}
