#include "time/datetime_format.h"

#include <gtest/gtest.h>

#include "time/clock.h"

namespace {

constexpr std::uint64_t ticks(std::uint64_t seconds_since_1601, std::uint64_t fraction = 0) {
  return seconds_since_1601 * k_ticks_per_second + fraction;
}

std::string written(const calendar_fields& when, std::uint32_t word) {
  std::string date = "stale", time = "stale";
  EXPECT_TRUE(format_datetime(when, word, date, time));
  return date + " " + time;
}

// Written with the default patterns (format word 0), so the calendar is read whole.
TEST(datetime_format, calendar_dates_across_leap_rules_and_epochs) {
  const struct {
    const char* label;
    std::uint64_t timestamp;
    const char* text;
  } cases[] = {
      {"1601 epoch", 0, "1601-01-01 00:00:00.000"},
      {"1604 leap day", ticks(99748800), "1604-02-29 12:00:00.000"},
      {"1900 has no Feb 29", ticks(9440582399), "1900-02-28 23:59:59.000"},
      {"1900 day after", ticks(9440582400), "1900-03-01 00:00:00.000"},
      {"unix epoch", timestamp_from_unix(0, 0), "1970-01-01 00:00:00.000"},
      {"2000 leap day", ticks(12596259723), "2000-02-29 01:02:03.000"},
      {"last tick of 2023", ticks(13348540799, 9999999), "2023-12-31 23:59:59.999"},
      {"first tick of 2024", ticks(13348540800), "2024-01-01 00:00:00.000"},
      {"2024 leap day", ticks(13353660428), "2024-02-29 06:07:08.000"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(written(to_calendar(c.timestamp), 0), c.text);
  }
}

// A date pattern without separators, or with a comma, puts NUL bytes between the fields.
TEST(datetime_format, patterns_compiled_and_written) {
  const calendar_fields when = to_calendar(ticks(13439246641, 1234567));  // 2026-11-15 20:04:01
  const std::string nul(1, '\0');
  const struct {
    const char* date_pattern;
    const char* time_pattern;
    bool compiles;
    std::string date_time;
  } cases[] = {
      {"mm/dd/yyyy", "hh:mm:ss.xxx", true, "11/15/2026 20:04:01.123"},
      {"dd-mm-yy", "hh:mm:ss", true, "15-11-2026 20:04:01"},
      {"yyyymmdd", "hh:mm:ss.xxxxxx", true, "2026" + nul + "11" + nul + "15 20:04:01.123456"},
      {"dd,mm,yyyy", "hh:mm:ss.xxxxxxxxxxxx", true, "15" + nul + "11" + nul + "2026 20:04:01.123456700"},
      {"dd mmm yyyy", "hh:mm:ss.x", true, "15 Nov 2026 20:04:01"},
      {"mmm/dd/yy", "hh:mm:ss.xxxx", true, "Nov/15/2026 20:04:01.1234"},
      {"yyyy mmm dd", "hh:mm:ss.xxxxx", true, " 20:04:01.12345"},
      {"yyyy-dd-mm", "hh:mm:ss.xxxxxxxx", false, " 20:04:01.12345670"},
      {"yyyy-mm", "hh:mm:ss.xxxxxxx", false, " 20:04:01.1234567"},
      {"", "hh:mm:ss.xx", true, "2026-11-15 20:04:01.123"},  // nothing compiled: defaults
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.date_pattern) + " " + c.time_pattern);
    std::uint32_t word = 0;
    EXPECT_EQ(compile_datetime_format(c.date_pattern, c.time_pattern, false, word), c.compiles);
    EXPECT_EQ(written(when, word), c.date_time);
  }
  calendar_fields early;  // a two-digit year pattern writes a year below 100 in two digits
  early.year = 5, early.month = 3, early.day = 4, early.hour = 5, early.minute = 6, early.second = 7;
  early.nanosecond = 999999999;
  std::uint32_t word = 0;
  ASSERT_TRUE(compile_datetime_format("dd/mm/yy", "hh:mm:ss.xxxxxxx", true, word));
  EXPECT_EQ(word, 0x10000u | '/' | 0x200 | 0x800 | 0x2000 | (7u << 17));
  EXPECT_EQ(written(early, word), "04/03/05 05:06:07.9999999");
  early.empty = true;
  std::string date, time;
  EXPECT_FALSE(format_datetime(early, word, date, time));
  EXPECT_EQ(date + time, "");
}

TEST(datetime_format, validation_and_column_widths) {
  const struct {
    const char* pattern;
    bool date_ok, time_ok;
    std::size_t date_width, time_width;
  } cases[] = {
      {"yyyy-mm-dd", true, false, 10, 0},      {"yyyymmdd", true, false, 8, 8},
      {"yyyy/mm", false, false, 0, 0},         {"hh:mm:ss", true, true, 8, 8},
      {"hh-mm-ss", true, false, 8, 8},         {"hh:mm:ss.xxx", false, true, 0, 12},
      {"hh:mm:ss,xxxx", false, true, 0, 0},    {"hh:mm:ss.xxxxxxxxxx", false, false, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pattern);
    EXPECT_EQ(valid_date_pattern(c.pattern), c.date_ok);
    EXPECT_EQ(valid_time_pattern(c.pattern), c.time_ok);
    EXPECT_EQ(date_column_width(c.pattern), c.date_width);
    EXPECT_EQ(time_column_width(c.pattern), c.time_width);
  }
}

}  // namespace
