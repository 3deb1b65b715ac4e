#include "params/arg_list.h"

#include <gtest/gtest.h>

namespace {

TEST(arg_list, switches_match_whole_argument_any_case_and_first_pair_is_consumed) {
  struct {
    const char* label;
    arg_list args;
    const char* name;
    std::optional<std::string> value;
    arg_list left;
  } const cases[] = {
      {"upper case", {"zib", "-URL", "a"}, "-url", "a", {"zib"}},
      {"first wins", {"zib", "-url", "a", "-url", "b"}, "-url", "a", {"zib", "-url", "b"}},
      {"last has no value", {"zib", "-server"}, "-server", std::nullopt, {"zib", "-server"}},
      {"prefix only", {"zib", "-url_pipe", "x"}, "-url", std::nullopt, {"zib", "-url_pipe", "x"}},
      {"value looks like a switch", {"-url", "-server", "s"}, "-url", "-server", {"s"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    arg_list args = c.args;
    EXPECT_EQ(take_value(args, c.name), c.value);
    EXPECT_EQ(args, c.left);
  }
  arg_list args = {"zib", "-Xml", "-xmlx", "-xml"};
  EXPECT_TRUE(take_switch(args, "-xml"));
  EXPECT_EQ(args, (arg_list{"zib", "-xmlx", "-xml"}));
}

TEST(arg_list, read_number_vectors) {
  struct {
    const char* text;
    std::int32_t value;  // 7, the value held before, when the text is refused
  } const cases[] = {
      {"0x1e", 30}, {"0X1E", 30}, {"x10", 16},  {"o17", 15}, {" 42 ", 42}, {"\t42\r\n", 42},
      {"-5", -5},   {"+8", 8},    {"12abc", 12}, {"0", 0},   {"0xffffffff", -1}, {"010", 10},
      {"0xa", 10},  {"0XA", 10},
      {"abc", 7},   {"", 7},      {"  ", 7},    {"0x", 7},   {"o9", 7},   {"#5", 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::int32_t value = 7;
    EXPECT_EQ(read_number(c.text, value), c.value != 7);
    EXPECT_EQ(value, c.value);
  }
}

// The newer switches take a number only when the whole text is one.
TEST(arg_list, read_strict_number_vectors) {
  struct {
    const char* text;
    std::int64_t value;  // 7, the value held before, when the text is refused
  } const cases[] = {
      {"4096", 4096}, {" 0x1000 ", 4096}, {"x10", 16}, {"0o17", 15}, {"o17", 15}, {"-5", -5}, {"010", 10},
      {"2147483648", 2147483648}, {"0xffffffff", 4294967295}, {"9223372036854775807", INT64_MAX},
      {"0xAa", 170},
      {"12abc", 7}, {"1x2", 7}, {"0x", 7}, {"o9", 7}, {"+", 7}, {"", 7}, {"4 096", 7}, {"-0x5", 7},
      {"12.7", 7}, {"9223372036854775808", 7},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::int64_t value = 7;
    EXPECT_EQ(read_strict_number(c.text, value), c.value != 7);
    EXPECT_EQ(value, c.value);
  }
}

}  // namespace
