#include "time/clock.h"

#include <sys/time.h>
#include <unistd.h>

namespace {

void system_pause(unsigned seconds) { ::sleep(seconds); }

pause_function g_pause = system_pause;

}  // namespace

std::uint64_t now_timestamp() {
  timeval tv{};
  ::gettimeofday(&tv, nullptr);
  return timestamp_from_unix(static_cast<std::uint64_t>(tv.tv_sec), static_cast<std::uint64_t>(tv.tv_usec));
}

void pause_seconds(unsigned seconds) { g_pause(seconds); }

pause_function set_pause_function(pause_function fn) {
  pause_function previous = g_pause;
  g_pause = fn ? fn : system_pause;
  return previous;
}
