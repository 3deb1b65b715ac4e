#include "driver/filename_filter.h"

#include <gtest/gtest.h>

namespace {

TEST(filename_filter, line_vectors) {
  struct {
    std::vector<std::string> patterns;  // raw -filter values, one per switch
    const char* line;
    bool accepted;
  } const cases[] = {
      {{"*mail*"}, "MAILHOST1", true},
      {{"*MAIL*"}, "smtp.Mail.example", true},
      {{"*mail*"}, "mx1.example", false},
      {{"ns*|mx*"}, "ns1.example", true},
      {{"ns*|mx*"}, "MX.example", true},
      {{"ns*|mx*"}, "www.ns1.example", false},
      {{"ns*", "*.org"}, "ns1.net", true},
      {{"ns*", "*.org"}, "a.org", true},
      {{"ns*", "*.org"}, "a.net", false},
      {{"a*,b*"}, "bx", true},
      {{"a,b|c"}, "a,b", true},  // "|" splits first; the "," then stays in the piece
      {{"a,b|c"}, "a", false},
      {{"*.com"}, "a.example.com", true},
      {{"*.com"}, "a.com.au", false},
      {{"www.example.com"}, "WWW.example.com", true},
      {{"www.example.com"}, "www.example.com.", false},
      {{"www.example.com"}, "www.example.com ", false},
      {{"a*b"}, "ab", true},  // an inner "*" is dropped, not a wildcard
      {{"a*b"}, "axb", false},
      {{"**"}, "anything", true},
      {{"*"}, "anything", true},
      {{"*"}, "", false},
      {{}, "anything", true},
      {{}, "", false},
      {{"host*"}, "zone/HOST1", true},  // only the part after the last "/" is compared
      {{"host*"}, "host1/zone", false},
      {{"*"}, "zone/", false},  // no name part: refused before any entry is asked
      {{"/var*"}, "/var/log/x", true},  // rooted: compared with the folder part
      {{"/var*"}, "/usr/var", false},
      {{"ns*:*example*"}, "ns1.example.com", true},
      {{"ns*:*example*"}, "ns1.test", false},
      {{"ns*:*"}, "ns1.test", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.patterns) + " " + c.line);
    EXPECT_EQ(filter_accepts(build_filters(c.patterns), c.line), c.accepted);
  }
}

TEST(filename_filter, entries_keep_the_order_given) {
  const auto filters = build_filters({"NS*|*mx", "*:a*"});
  ASSERT_EQ(filters.size(), 3u);
  EXPECT_EQ(filters[0].pattern, "ns*");
  EXPECT_EQ(filters[1].name_pattern, "mx");
  EXPECT_TRUE(filters[1].leading_wildcard && !filters[1].trailing_wildcard);
  EXPECT_EQ(filters[2].second_pattern, "a");
  EXPECT_TRUE(filters[2].has_second && filters[2].second_set && !filters[2].match_all);
}

}  // namespace
