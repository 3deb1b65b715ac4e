#include "params/root_hints.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <sstream>

namespace {

// The root servers a to m, as IANA publishes them (root hints of 2023 on, b's new addresses).
constexpr const char* k_root_addresses[] = {
    "198.41.0.4",     "2001:503:ba3e::2:30", "170.247.170.2", "2801:1b8:10::b",  "192.33.4.12",   "2001:500:2::c",
    "199.7.91.13",    "2001:500:2d::d",      "192.203.230.10", "2001:500:a8::e", "192.5.5.241",   "2001:500:2f::f",
    "192.112.36.4",   "2001:500:12::d0d",    "198.97.190.53", "2001:500:1::53",  "192.36.148.17", "2001:7fe::53",
    "192.58.128.30",  "2001:503:c27::2:30",  "193.0.14.129",  "2001:7fd::1",     "199.7.83.42",   "2001:500:9f::42",
    "202.12.27.33",   "2001:dc3::35",
};

// The whole text: inet_pton would stop at a NUL byte, which a word of the file may hold.
bool is_address(const std::string& text) {
  if (text.find('\0') != std::string::npos) return false;
  unsigned char bytes[sizeof(in6_addr)];
  return ::inet_pton(AF_INET, text.c_str(), bytes) == 1 || ::inet_pton(AF_INET6, text.c_str(), bytes) == 1;
}

std::string upper(std::string text) {
  for (char& c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  return text;
}

}  // namespace

root_hints builtin_root_hints() {
  root_hints hints;
  hints.addresses.assign(std::begin(k_root_addresses), std::end(k_root_addresses));
  return hints;
}

root_hints read_root_hints(std::string_view text) {
  root_hints hints;
  std::istringstream lines{std::string(text)};
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    line = line.substr(0, line.find(';'));
    std::istringstream words(line);
    std::vector<std::string> tokens;
    for (std::string word; words >> word;) tokens.push_back(word);
    if (tokens.empty()) continue;
    if (tokens.size() == 1 && is_address(tokens[0])) {
      hints.addresses.push_back(tokens[0]);
      continue;
    }
    // owner [ttl] [class] type data
    const auto type = std::find_if(tokens.begin() + 1, tokens.end(), [](const std::string& t) {
      const std::string u = upper(t);
      return u == "NS" || u == "A" || u == "AAAA";
    });
    if (tokens.size() < 3 || type == tokens.end() || type + 2 != tokens.end()) {
      hints.bad_line = number;
      return hints;
    }
    if (upper(*type) == "NS") continue;
    if (!is_address(type[1])) {
      hints.bad_line = number;
      return hints;
    }
    hints.addresses.push_back(type[1]);
  }
  return hints;
}
