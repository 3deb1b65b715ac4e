// Waiting for many descriptors at once, in one thread: each watched descriptor carries a token
// and an interest (readable or writable), and a wait returns the tokens of those that became
// ready. One interface, two backends chosen when zib is built: epoll on Linux, poll() elsewhere
// (macOS included) or anywhere built with -DZIB_EVENT_LOOP=poll. With epoll a wait costs in
// proportion to the descriptors that are ready, not to those watched.
// Every wait also ends, with nothing ready, when a stop signal arrives (net/interrupt.h).
#pragma once

#include <cstdint>
#include <memory>
#include <span>

enum class interest : std::uint8_t { read, write, both };

struct ready_event {
  std::uint64_t token;
  bool readable;  // also set on an error or a hang-up, so the owner reads and learns of it
  bool writable;  // likewise
};

class event_loop {
 public:
  event_loop();
  ~event_loop();
  event_loop(const event_loop&) = delete;
  event_loop& operator=(const event_loop&) = delete;

  // Starts watching `descriptor`, or changes what it is watched for; ready events carry
  // `token`. False when the system refused (the descriptor then is not watched).
  bool watch(int descriptor, std::uint64_t token, interest what);
  // Stops watching. With `closing` the caller is about to close the descriptor, which takes it
  // out of an epoll set by itself, so no system call is spent on it.
  void forget(int descriptor, bool closing = false);

  // Waits up to `timeout_ms` (negative: no limit; 0: only looks). The events hold until the
  // next call; empty after a time-out, a failed wait or a stop signal.
  std::span<const ready_event> wait(int timeout_ms);

  // "epoll" or "poll".
  static const char* backend_name();

 private:
  struct backend;
  std::unique_ptr<backend> m_backend;
};

// The one-socket wait of a sequential attempt: true when `descriptor` became readable within
// `timeout_ms` (negative: no limit), false on a time-out, a failed wait or a stop signal. A
// negative descriptor waits for the time alone (or the stop signal).
bool wait_readable(int descriptor, int timeout_ms);
