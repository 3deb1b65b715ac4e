// Pacing for -qps: at most a given number of queries sent per second, spread evenly.
#pragma once

#include <chrono>
#include <cstdint>

class send_pacer {
 public:
  using clock = std::chrono::steady_clock;

  // `per_second` 0 or less: no limit.
  explicit send_pacer(std::int32_t per_second = 0);

  bool limited() const { return m_interval.count() != 0; }
  // The earliest time the next query may go out.
  clock::time_point next_send() const { return m_next; }
  // Books the send of one query at `now`.
  void sent(clock::time_point now);

 private:
  clock::duration m_interval{0};
  clock::time_point m_next{};
};
