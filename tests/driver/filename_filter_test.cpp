#include "driver/filename_filter.h"

#include <gtest/gtest.h>

namespace {

TEST(filename_filter, line_vectors) {
  struct {
    std::vector<std::string> patterns;  // raw -filter values, one per switch
    const char* line;
    bool accepted;
  } const cases[] = {
      {{"*mail*"}, "MAILHOST1", true},          {{"*MAIL*"}, "smtp.Mail.example", true},
      {{"*mail*"}, "mx1.example", false},       {{"ns*|mx*"}, "ns1.example", true},
      {{"ns*|mx*"}, "MX.example", true},        {{"ns*|mx*"}, "www.ns1.example", false},
      {{"ns*", "*.org"}, "a.org", true},        {{"ns*", "*.org"}, "a.net", false},
      {{"a*,b*"}, "bx", true},                  {{"a,b|c"}, "a,b", true},  // "|" splits first
      {{"a,b|c"}, "a", false},                  {{"*.com"}, "a.com.au", false},
      {{"www.example.com"}, "WWW.example.com", true},
      {{"www.example.com"}, "www.example.com ", false},
      {{"a*b"}, "ab", true},                    {{"a*b"}, "axb", false},  // inner "*" dropped
      {{"**"}, "anything", true},               {{"*"}, "", false},
      {{}, "anything", true},                   {{}, "", false},
      {{"host*"}, "zone/HOST1", true},          {{"host*"}, "host1/zone", false},
      {{"*"}, "zone/", false},                  {{"/var*"}, "/var/log/x", true},  // rooted
      {{"ns*:*example*"}, "ns1.example.com", true},
      {{"ns*:*example*"}, "ns1.test", false},   {{"ns*:*"}, "ns1.test", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.patterns) + " " + c.line);
    EXPECT_EQ(filter_accepts(build_filters(c.patterns), c.line), c.accepted);
  }
}

}  // namespace
