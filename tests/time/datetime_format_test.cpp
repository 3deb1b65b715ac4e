#include "time/datetime_format.h"

#include <gtest/gtest.h>

#include "time/clock.h"

namespace {

constexpr std::uint64_t ticks(std::uint64_t seconds_since_1601, std::uint64_t fraction = 0) {
  return seconds_since_1601 * k_ticks_per_second + fraction;
}

TEST(datetime_format, calendar_fields_across_leap_rules_and_epochs) {
  struct {
    const char* label;
    std::uint64_t timestamp;
    std::vector<int> fields;  // year, month, day, hour, minute, second
  } const cases[] = {
      {"1601 epoch", 0, {1601, 1, 1, 0, 0, 0}},
      {"1604 leap day", ticks(99748800), {1604, 2, 29, 12, 0, 0}},
      {"1900 has no Feb 29", ticks(9440582399), {1900, 2, 28, 23, 59, 59}},
      {"1900 day after", ticks(9440582400), {1900, 3, 1, 0, 0, 0}},
      {"unix epoch", timestamp_from_unix(0, 0), {1970, 1, 1, 0, 0, 0}},
      {"2000 leap day", ticks(12596259723), {2000, 2, 29, 1, 2, 3}},
      {"last tick of 2023", ticks(13348540799, 9999999), {2023, 12, 31, 23, 59, 59}},
      {"first tick of 2024", ticks(13348540800), {2024, 1, 1, 0, 0, 0}},
      {"2024 leap day", ticks(13353660428), {2024, 2, 29, 6, 7, 8}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const calendar_fields f = to_calendar(c.timestamp);
    EXPECT_EQ((std::vector<int>{f.year, f.month, f.day, f.hour, f.minute, f.second}), c.fields);
  }
  const calendar_fields f = to_calendar(ticks(13439246641, 1234567));
  EXPECT_EQ((std::vector<int>{f.millisecond, f.microsecond, f.nanosecond}),
            (std::vector<int>{123, 123456, 123456700}));
}

TEST(datetime_format, patterns_written) {
  calendar_fields when = to_calendar(ticks(13439246641));  // 2026-11-15 20:04:01
  when.millisecond = 123, when.microsecond = 123456, when.nanosecond = 123456789;
  const std::string nul(1, '\0');
  struct {
    const char* date_pattern;
    const char* time_pattern;
    bool compiles;
    std::string date_time;
  } const cases[] = {
      {"mm/dd/yyyy", "hh:mm:ss.xxx", true, "11/15/2026 20:04:01.123"},
      {"dd-mm-yy", "hh:mm:ss", true, "15-11-2026 20:04:01"},
      {"yyyymmdd", "hh:mm:ss.xxxxxx", true, "2026" + nul + "11" + nul + "15 20:04:01.123456"},
      {"dd,mm,yyyy", "hh:mm:ss.xxxxxxxxxxxx", true, "15" + nul + "11" + nul + "2026 20:04:01.123456789"},
      {"dd mmm yyyy", "hh:mm:ss.x", true, "15 Nov 2026 20:04:01"},
      {"mmm/dd/yy", "hh:mm:ss.xxxx", true, "Nov/15/2026 20:04:01.1234"},
      {"yyyy mmm dd", "hh:mm:ss.xxxxx", true, " 20:04:01.12345"},
      {"yyyy-dd-mm", "hh:mm:ss.xxxxxxxx", false, " 20:04:01.12345678"},
      {"yyyy-mm", "hh:mm:ss.xxxxxxx", false, " 20:04:01.1234567"},
      {"", "hh:mm:ss.xx", true, "2026-11-15 20:04:01.123"},  // nothing compiled: defaults
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.date_pattern) + " " + c.time_pattern);
    std::uint32_t word = 0;
    EXPECT_EQ(compile_datetime_format(c.date_pattern, c.time_pattern, false, word), c.compiles);
    std::string date = "stale", time = "stale";
    EXPECT_TRUE(format_datetime(when, word, date, time));
    EXPECT_EQ(date + " " + time, c.date_time);
  }
}

TEST(datetime_format, truncation_short_years_pair_bit_and_empty_fields) {
  calendar_fields f;
  f.year = 5, f.month = 3, f.day = 4, f.hour = 5, f.minute = 6, f.second = 7;
  f.millisecond = 999, f.microsecond = 999999, f.nanosecond = 999999999;
  std::uint32_t word = 0;
  ASSERT_TRUE(compile_datetime_format("dd/mm/yy", "hh:mm:ss.xxxxxxx", true, word));
  EXPECT_EQ(word, 0x10000u | '/' | 0x200 | 0x800 | 0x2000 | (7u << 17));
  std::string date, time;
  EXPECT_TRUE(format_datetime(f, word, date, time));
  EXPECT_EQ(date + " " + time, "04/03/05 05:06:07.9999999");
  EXPECT_TRUE(format_datetime(f, 0, date, time));
  EXPECT_EQ(date + " " + time, "0005-03-04 05:06:07.999");
  f.empty = true;
  EXPECT_FALSE(format_datetime(f, word, date, time));
  EXPECT_EQ(date + time, "");
}

TEST(datetime_format, validation_widths_and_month_names) {
  struct {
    const char* pattern;
    bool date_ok, time_ok;
    std::size_t date_width, time_width;
  } const cases[] = {
      {"yyyy-mm-dd", true, false, 10, 0},      {"yyyymmdd", true, false, 8, 8},
      {"yyyy/mm", false, false, 0, 0},         {"hh:mm:ss", true, true, 8, 8},
      {"hh-mm-ss", true, false, 8, 8},         {"hh:mm:ss.xxx", false, true, 0, 12},
      {"hh:mm:ss.xxxxxx", false, true, 0, 15}, {"hh:mm:ss,xxxx", false, true, 0, 0},
      {"hh:mm:ss.x", true, false, 10, 0},      {"hh:mm:ss.xxxxxxxxxx", false, false, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pattern);
    EXPECT_EQ(valid_date_pattern(c.pattern), c.date_ok);
    EXPECT_EQ(valid_time_pattern(c.pattern), c.time_ok);
    EXPECT_EQ(date_column_width(c.pattern), c.date_width);
    EXPECT_EQ(time_column_width(c.pattern), c.time_width);
  }
  std::string names;
  for (int month : {0, 1, 12, 13}) names.append(month_name(month)).append(",");
  EXPECT_EQ(names, ",Jan,Dec,,");
}

}  // namespace
