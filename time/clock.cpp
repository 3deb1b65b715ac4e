#include "time/clock.h"

#include <sys/time.h>
#include <unistd.h>

#include <chrono>

namespace {

void system_pause(unsigned seconds) { ::sleep(seconds); }

pause_function g_pause = system_pause;

}  // namespace

std::uint64_t now_timestamp() {
  timeval tv{};
  ::gettimeofday(&tv, nullptr);
  return timestamp_from_unix(static_cast<std::uint64_t>(tv.tv_sec), static_cast<std::uint64_t>(tv.tv_usec));
}

std::int64_t monotonic_micros() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void pause_seconds(unsigned seconds) { g_pause(seconds); }

pause_function set_pause_function(pause_function fn) {
  pause_function previous = g_pause;
  g_pause = fn ? fn : system_pause;
  return previous;
}
