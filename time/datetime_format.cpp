#include "time/datetime_format.h"

#include <array>
#include <charconv>

namespace {

constexpr std::uint64_t k_ticks_per_second = 10000000ULL;
constexpr std::uint64_t k_seconds_per_day = 86400ULL;
// Days from 1601-01-01 to 1970-01-01: the calendar arithmetic below counts from the Unix epoch.
constexpr std::int64_t k_days_1601_to_1970 = 134774;

constexpr std::array<std::string_view, 12> k_month_names = {
    "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// The default patterns "yyyy-mm-dd" and "hh:mm:ss.xxx", compiled.
constexpr std::uint32_t k_default_word =
    '-' | k_fmt_month_digits | k_fmt_year4 | k_fmt_order_ymd | (3u << k_fmt_fraction_shift);

// Days since 1970-01-01 to a proleptic Gregorian date; works in 400-year eras of 146097 days
// so that century and 400-year leap rules fall out of the division.
void civil_from_days(std::int64_t days, int& year, int& month, int& day) {
  days += 719468;  // shift the epoch to 0000-03-01, so the leap day ends each year
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t day_of_era = days - era * 146097;
  const std::int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const std::int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const std::int64_t shifted_month = (5 * day_of_year + 2) / 153;  // 0 = March
  day = static_cast<int>(day_of_year - (153 * shifted_month + 2) / 5 + 1);
  month = static_cast<int>(shifted_month < 10 ? shifted_month + 3 : shifted_month - 9);
  year = static_cast<int>(year_of_era + era * 400 + (month <= 2 ? 1 : 0));
}

// Zero-filled decimal, at least `width` digits; never shortened.
// Every row formats its time, so the digits go straight into `out` without a string of their own.
void append_number(std::string& out, std::uint64_t value, std::size_t width) {
  char digits[24];  // 2^64 has 20 decimal digits
  const auto size = static_cast<std::size_t>(std::to_chars(digits, digits + sizeof digits, value).ptr - digits);
  if (size < width) out.append(width - size, '0');
  out.append(digits, size);
}

std::uint32_t fraction_digits(std::string_view time_pattern) {
  if (time_pattern.find("xxx") == std::string_view::npos) return 0;
  const auto first = time_pattern.find('x');
  const auto last = time_pattern.rfind('x');
  const auto count = last - first + 1;
  return static_cast<std::uint32_t>(count > 9 ? 9 : count);
}

char date_separator(std::string_view pattern) {
  for (char candidate : {'/', '-', ' '})
    if (pattern.find(candidate) != std::string_view::npos) return candidate;
  return 0;
}

// Adds the date bits to `word`; false when a field is missing or the order is not allowed.
// The bits found before a refusal stay, which leaves the word without an order bit: such a
// word writes an empty date while the time still comes out.
bool compile_date(std::string_view pattern, std::uint32_t& word) {
  word |= static_cast<unsigned char>(date_separator(pattern));
  std::size_t month = pattern.find("mmm");
  if (month != std::string_view::npos) {
    word |= k_fmt_month_name;
  } else if ((month = pattern.find("mm")) != std::string_view::npos) {
    word |= k_fmt_month_digits;
  } else {
    return false;
  }
  std::size_t year = pattern.find("yyyy");
  if (year != std::string_view::npos) {
    word |= k_fmt_year4;
  } else if ((year = pattern.find("yy")) != std::string_view::npos) {
    word |= k_fmt_year2;
  } else {
    return false;
  }
  if (pattern.find(',') != std::string_view::npos) word |= k_fmt_has_comma;
  const std::size_t day = pattern.find("dd");
  if (day == std::string_view::npos) return false;
  if (day < month && month < year) {
    word |= k_fmt_order_dmy;
  } else if (month < day && day < year) {
    word |= k_fmt_order_mdy;
  } else if (year < month && month < day) {
    word |= k_fmt_order_ymd;
  } else {
    return false;
  }
  return true;
}

void write_date(const calendar_fields& f, std::uint32_t word, std::string& date) {
  const char sep = static_cast<char>(word & k_fmt_separator_mask);  // a 0 byte is written too
  const std::size_t year_width = (word & k_fmt_year4) ? 4 : 2;
  std::string month;
  if (word & k_fmt_month_digits) {
    append_number(month, static_cast<std::uint64_t>(f.month), 2);
  } else if (word & k_fmt_month_name) {
    if (word & k_fmt_order_ymd) return;  // a named month has no year-first form
    month = month_name(f.month);
  } else {
    return;
  }
  auto day = [&] { append_number(date, static_cast<std::uint64_t>(f.day), 2); };
  auto year = [&] { append_number(date, static_cast<std::uint64_t>(f.year), year_width); };
  if (word & k_fmt_order_mdy) {
    date += month, date += sep, day(), date += sep, year();
  } else if (word & k_fmt_order_dmy) {
    day(), date += sep, date += month, date += sep, year();
  } else if (word & k_fmt_order_ymd) {
    year(), date += sep, date += month, date += sep, day();
  }
}

void write_time(const calendar_fields& f, std::uint32_t word, std::string& time) {
  append_number(time, static_cast<std::uint64_t>(f.hour), 2);
  time += ':';
  append_number(time, static_cast<std::uint64_t>(f.minute), 2);
  time += ':';
  append_number(time, static_cast<std::uint64_t>(f.second), 2);
  const std::uint32_t digits = (word & k_fmt_fraction_mask) >> k_fmt_fraction_shift;
  if (digits == 0) return;
  // Fewer digits than a unit holds are cut from the finer unit, never rounded.
  std::uint64_t value = 0;
  if (digits == 3) {
    value = static_cast<std::uint64_t>(f.millisecond);
  } else if (digits <= 6) {
    value = static_cast<std::uint64_t>(f.microsecond);
    for (std::uint32_t n = digits; n < 6; ++n) value /= 10;
  } else {
    value = static_cast<std::uint64_t>(f.nanosecond);
    for (std::uint32_t n = digits; n < 9; ++n) value /= 10;
  }
  time += '.';
  append_number(time, value, digits);
}

}  // namespace

calendar_fields to_calendar(std::uint64_t timestamp) {
  calendar_fields f;
  const std::uint64_t seconds = timestamp / k_ticks_per_second;
  const std::uint64_t ticks = timestamp % k_ticks_per_second;
  const std::uint64_t second_of_day = seconds % k_seconds_per_day;
  const auto days = static_cast<std::int64_t>(seconds / k_seconds_per_day);
  civil_from_days(days - k_days_1601_to_1970, f.year, f.month, f.day);
  f.hour = static_cast<int>(second_of_day / 3600);
  f.minute = static_cast<int>(second_of_day / 60 % 60);
  f.second = static_cast<int>(second_of_day % 60);
  f.nanosecond = static_cast<int>(ticks * 100);
  f.microsecond = f.nanosecond / 1000;
  f.millisecond = f.microsecond / 1000;
  return f;
}

bool valid_date_pattern(std::string_view pattern) {
  return pattern.size() == 8 || pattern.size() == 10;
}

bool valid_time_pattern(std::string_view pattern) {
  const bool length_ok = pattern.size() == 8 || (pattern.size() >= 12 && pattern.size() <= 18);
  return length_ok && pattern.find(':') != std::string_view::npos;
}

bool compile_datetime_format(std::string_view date_pattern, std::string_view time_pattern,
                             bool pair, std::uint32_t& word) {
  std::uint32_t compiled = pair ? std::uint32_t{k_fmt_pair} : 0u;
  const bool date_ok = date_pattern.empty() || compile_date(date_pattern, compiled);
  // The fraction is compiled even for a refused date, so rows still carry the chosen time.
  compiled |= fraction_digits(time_pattern) << k_fmt_fraction_shift;
  word = compiled;
  return date_ok;
}

bool format_datetime(const calendar_fields& fields, std::uint32_t word, std::string& date,
                     std::string& time) {
  date.clear();
  time.clear();
  if (fields.empty) return false;
  if (word == 0) word = k_default_word;
  write_date(fields, word, date);
  write_time(fields, word, time);
  return true;
}

std::size_t date_column_width(std::string_view date_pattern) {
  return valid_date_pattern(date_pattern) ? date_pattern.size() : 0;
}

std::size_t time_column_width(std::string_view time_pattern) {
  if (time_pattern.size() == 8) return 8;
  const bool fraction_form = time_pattern.size() >= 12 && time_pattern.size() <= 18 &&
                             time_pattern.find(':') != std::string_view::npos &&
                             time_pattern.find(".xxx") != std::string_view::npos;
  return fraction_form ? time_pattern.size() : 0;
}

std::string_view month_name(int month) {
  if (month < 1 || month > 12) return {};
  return k_month_names[static_cast<std::size_t>(month - 1)];
}

const datetime_texts& timestamp_texts(std::uint64_t timestamp, std::uint32_t word) {
  static datetime_texts texts;
  static std::uint64_t last_timestamp = 0;
  static std::uint32_t last_word = 0;
  static bool made = false;
  if (!made || timestamp != last_timestamp || word != last_word) {
    format_datetime(to_calendar(timestamp), word, texts.date, texts.time);
    last_timestamp = timestamp;
    last_word = word;
    made = true;
  }
  return texts;
}
