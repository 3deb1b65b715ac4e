#include "params/resolver_list.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

const resolver_entry v4{"192.0.2.1", std::nullopt, false};
const resolver_entry v6{"2001:db8::1", std::nullopt, true};

TEST(read_resolver_list, forms_comments_and_the_first_bad_line) {
  struct row {
    const char* label;
    std::string_view text;
    std::vector<resolver_entry> entries;
    std::size_t bad_line = 0;
    std::string bad_text = {};
  };
  const row rows[] = {
      {"ipv4", "192.0.2.1", {v4}},
      {"ipv4 and port", "192.0.2.1:5353", {{"192.0.2.1", 5353, false}}},
      {"bare ipv6", "2001:db8::1", {v6}},
      {"bare ipv6 ending in what looks like a port", "2001:db8::1:53", {{"2001:db8::1:53", std::nullopt, true}}},
      {"bracketed ipv6", "[2001:db8::1]", {v6}},
      {"bracketed ipv6 and port", "[2001:db8::1]:5353", {{"2001:db8::1", 5353, true}}},
      {"highest port", "192.0.2.1:65535", {{"192.0.2.1", 65535, false}}},
      {"port 0", "192.0.2.1:0", {}, 1, "192.0.2.1:0"},
      {"port 65536", "[2001:db8::1]:65536", {}, 1, "[2001:db8::1]:65536"},
      {"empty port", "192.0.2.1:", {}, 1, "192.0.2.1:"},
      {"port with letters", "192.0.2.1:53x", {}, 1, "192.0.2.1:53x"},
      {"host name", "resolver.example", {}, 1, "resolver.example"},
      {"octet over 255", "192.0.2.256", {}, 1, "192.0.2.256"},
      {"NUL inside the address", {"[2001:db8::\0\0\0" "53]:53", 20}, {}, 1, {"[2001:db8::\0\0\0" "53]:53", 20}},
      {"unclosed bracket", "[2001:db8::1", {}, 1, "[2001:db8::1"},
      {"bracketed ipv4", "[192.0.2.1]", {}, 1, "[192.0.2.1]"},
      {"comment after a blank", "192.0.2.1 # office", {v4}},
      {"comment without a blank", "192.0.2.1#office", {}, 1, "192.0.2.1#office"},
      {"blanks, tabs and CR around", " \t192.0.2.1\t \r\n", {v4}},
      {"blank and comment lines skipped", "\n# resolvers\n \t\r\n192.0.2.1\n\n", {v4}},
      {"file order, duplicates once", "192.0.2.1\n[2001:db8::1]\n192.0.2.1:5353\n192.0.2.1\n2001:db8::1",
       {v4, v6, {"192.0.2.1", 5353, false}}},
      {"first bad line counted from 1, blanks and comments too", "# list\n192.0.2.1\n\n  bogus # x \r\nworse\n",
       {}, 4, "bogus # x"},
      {"empty file", "", {}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    const resolver_list list = read_resolver_list(r.text);
    EXPECT_EQ(list.entries, r.entries);
    EXPECT_EQ(list.bad_line, r.bad_line);
    EXPECT_EQ(list.bad_text, r.bad_text);
  }
}

}  // namespace
