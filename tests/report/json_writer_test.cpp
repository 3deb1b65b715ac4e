#include "report/json_writer.h"

#include <gtest/gtest.h>

// Each kind of byte once: the value must read back to the bytes, and the line must stay ASCII.
// Text already in presentation form keeps its escapes: the value reads back as that text.
TEST(append_json_text, only_json_escapes) {
  for (const auto& [text, json] : {std::pair<std::string_view, std::string_view>{R"(\# 4 0A000001)", R"("\\# 4 0A000001")"},
                                   {R"("a\"b" c\.d)", R"("\"a\\\"b\" c\\.d")"},
                                   {std::string_view("\x01\x7f", 2), R"("\u0001\u007f")"}}) {
    std::string out;
    append_json_text(out, text);
    EXPECT_EQ(out, json);
  }
}

TEST(append_json_string, one_rule_for_every_byte) {
  const struct {
    std::string_view bytes, json;
  } cases[] = {
      {"", R"("")"},
      {" az~", R"(" az~")"},
      {"\"", R"("\"")"},
      {"\\", R"("\\\\")"},          // doubled in the value: a lone \ always starts \DDD
      {"\\065", R"("\\\\065")"},    // so the text \065 never reads as the byte 65
      {std::string_view("\0\x1f", 2), R"("\\000\\031")"},
      {"\x7f\x80\xc3\xa9\xff", R"("\\127\\128\\195\\169\\255")"},  // UTF-8 too: bytes, not characters
  };
  for (const auto& c : cases) {
    std::string out;
    append_json_string(out, c.bytes);
    EXPECT_EQ(out, c.json) << c.json;
  }
}
