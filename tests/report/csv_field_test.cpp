#include "report/csv_field.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>

// Each byte alone: printable ASCII stands as it is, quoted where a reader or a spreadsheet would
// take it for more than text; a backslash is doubled; every other byte is \DDD, which needs no
// quotes, so no control byte ever reaches the file.
TEST(append_csv_field, every_byte_alone) {
  const std::map<char, std::string_view> special = {
      {'"', R"("""")"}, {',', R"(",")"}, {' ', R"(" ")"}, {'=', R"("=")"}, {'+', R"("+")"},
      {'-', R"("-")"},  {'@', R"("@")"}, {'\\', R"(\\)"},
  };
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    std::string expected(1, c);
    if (special.contains(c)) {
      expected = special.at(c);
    } else if (byte < 0x20 || byte > 0x7e) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\%03d", byte);
      expected = escaped;
    }
    std::string out = "x,";
    append_csv_field(out, std::string_view(&c, 1), ",");
    EXPECT_EQ(out, "x," + expected) << byte;
  }
}

TEST(append_csv_field, fields) {
  const struct {
    std::string_view value, separator;
    csv_text kind;
    std::string_view field;
  } cases[] = {
      {"", ",", csv_text::bytes, ""},
      {"a;b", ",", csv_text::bytes, "a;b"},
      {"a;b", ";", csv_text::bytes, R"("a;b")"},
      {"a b", " ; ", csv_text::bytes, R"("a b")"},  // any character of the separator
      {"a\tb", "\t", csv_text::bytes, R"(a\009b)"},  // escaped: the tab is gone
      {"x.test ", ",", csv_text::bytes, R"("x.test ")"},
      {R"(say "hi")", ",", csv_text::bytes, R"("say ""hi""")"},
      {"\x0bv=spf1 -all", ",", csv_text::bytes, R"(\011v=spf1 -all)"},
      {R"("v=spf1 -all")", ",", csv_text::presentation, R"("""v=spf1 -all""")"},
      {R"(\# 4 0A000001)", ",", csv_text::presentation, R"(\# 4 0A000001)"},  // its escapes stay
      {"10 mail.example.", ",", csv_text::presentation, "10 mail.example."},
  };
  for (const auto& c : cases) {
    std::string out;
    append_csv_field(out, c.value, c.separator, c.kind);
    EXPECT_EQ(out, c.field) << c.value;
  }
  for (const std::string_view raw : {"a\rb", "a\nb", "\tx", "\rx", "x\t"}) EXPECT_TRUE(csv_needs_quotes(raw, ",")) << raw;
}
