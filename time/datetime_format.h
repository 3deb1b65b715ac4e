// Date and time patterns ("yyyy-mm-dd", "hh:mm:ss.xxx"): validation, compilation into the
// format word, and writing a time value with them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Bits of the compiled format word.
enum : std::uint32_t {
  k_fmt_separator_mask = 0xFF,
  k_fmt_month_name = 0x100,
  k_fmt_month_digits = 0x200,
  k_fmt_year4 = 0x400,
  k_fmt_year2 = 0x800,
  k_fmt_has_comma = 0x1000,
  k_fmt_order_dmy = 0x2000,
  k_fmt_order_mdy = 0x4000,
  k_fmt_order_ymd = 0x8000,
  k_fmt_pair = 0x10000,
  k_fmt_fraction_shift = 17,
  k_fmt_fraction_mask = 0xF << 17,
};

struct calendar_fields {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int millisecond = 0, microsecond = 0, nanosecond = 0;
  bool empty = false;
};

// UTC calendar fields of a time value (100 ns intervals since 1601-01-01, Gregorian).
calendar_fields to_calendar(std::uint64_t timestamp);

bool valid_date_pattern(std::string_view pattern);  // 8 or 10 characters
bool valid_time_pattern(std::string_view pattern);  // 8, or 12 to 18, holding ":"

// Compiles both patterns into `word`; false when the date's field order is not allowed.
bool compile_datetime_format(std::string_view date_pattern, std::string_view time_pattern,
                             bool pair, std::uint32_t& word);

// Writes the date and time texts; a word of 0 means the default patterns. False (both empty)
// when the fields are marked empty.
bool format_datetime(const calendar_fields& fields, std::uint32_t word, std::string& date,
                     std::string& time);

// The date and time texts of a time value with `word`, as format_datetime writes them. The
// rows of one reply share its time of receipt, so the last result is kept and handed out again
// for the same time and word. The view holds until the next call.
struct datetime_texts {
  std::string date;
  std::string time;
};
const datetime_texts& timestamp_texts(std::uint64_t timestamp, std::uint32_t word);

std::size_t date_column_width(std::string_view date_pattern);
std::size_t time_column_width(std::string_view time_pattern);

// "Jan" to "Dec"; empty for any other number.
std::string_view month_name(int month);
