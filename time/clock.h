// The tool's time value: 100-nanosecond intervals since 1601-01-01 00:00 UTC, read from
// gettimeofday, and the one seam through which every pause of the tool goes.
#pragma once

#include <cstdint>

// Seconds between 1601-01-01 and 1970-01-01, in 100 ns units.
inline constexpr std::uint64_t k_unix_epoch_in_ticks = 116444736000000000ULL;
inline constexpr std::uint64_t k_ticks_per_second = 10000000ULL;

// The current time of day as a time value.
std::uint64_t now_timestamp();

// Microseconds on a monotonic clock from an arbitrary start: for durations only.
std::int64_t monotonic_micros();

// A time value from Unix seconds and microseconds.
constexpr std::uint64_t timestamp_from_unix(std::uint64_t seconds, std::uint64_t microseconds) {
  return seconds * k_ticks_per_second + microseconds * 10 + k_unix_epoch_in_ticks;
}

// Sleeps go through here so that tests can count them without waiting. The default calls
// sleep(3); set_pause_function returns the previous function so a test can put it back.
using pause_function = void (*)(unsigned seconds);
void pause_seconds(unsigned seconds);
pause_function set_pause_function(pause_function fn);
