#include "params/arg_list.h"

#include <gtest/gtest.h>

namespace {

struct take_case {
  const char* label;
  arg_list args;
  const char* name;
  std::optional<std::string> value;  // take_value's result
  arg_list left;                     // the list after take_value
};

TEST(arg_list, take_value_matches_whole_switch_any_case_and_consumes_first_pair) {
  const take_case cases[] = {
      {"upper case", {"zib", "-URL", "a"}, "-url", "a", {"zib"}},
      {"first wins", {"zib", "-url", "a", "-url", "b"}, "-url", "a", {"zib", "-url", "b"}},
      {"last has no value", {"zib", "-server"}, "-server", std::nullopt, {"zib", "-server"}},
      {"prefix only", {"zib", "-url_pipe", "x"}, "-url", std::nullopt, {"zib", "-url_pipe", "x"}},
      {"value looks like switch", {"-url", "-server", "s"}, "-url", "-server", {"s"}},
      {"absent", {"zib"}, "-mx", std::nullopt, {"zib"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    arg_list args = c.args;
    EXPECT_EQ(take_value(args, c.name), c.value);
    EXPECT_EQ(args, c.left);
  }
}

TEST(arg_list, take_switch_removes_only_the_first_match) {
  arg_list args = {"zib", "-Xml", "-xml", "-xmlx"};
  EXPECT_TRUE(take_switch(args, "-xml"));
  EXPECT_EQ(args, (arg_list{"zib", "-xml", "-xmlx"}));
  EXPECT_TRUE(take_switch(args, "-XML"));
  EXPECT_FALSE(take_switch(args, "-xml"));
  EXPECT_EQ(args, (arg_list{"zib", "-xmlx"}));
}

TEST(arg_list, read_number_vectors) {
  struct {
    const char* text;
    bool accepted;
    std::int32_t value;  // 7 when refused: the previous value stays
  } const cases[] = {
      {"0x1e", true, 30},       {"0X1E", true, 30},   {"x10", true, 16},
      {"o17", true, 15},        {"0o17", true, 15},   {" 42 ", true, 42},
      {"\t42\r\n", true, 42},   {"-5", true, -5},     {"+8", true, 8},
      {"12abc", true, 12},      {"0", true, 0},       {"0xffffffff", true, -1},
      {"abc", false, 7},        {"", false, 7},       {"  ", false, 7},
      {"0x", false, 7},         {"o9", false, 7},     {"#5", false, 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::int32_t value = 7;
    EXPECT_EQ(read_number(c.text, value), c.accepted);
    EXPECT_EQ(value, c.value);
  }
}

}  // namespace
