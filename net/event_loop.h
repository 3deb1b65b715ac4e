// Waiting for datagrams on many sockets at once, in one thread: the descriptors to watch for
// reading, and a wait with a time limit. Built on poll(), which every POSIX system has and which,
// unlike select(), takes descriptors of any number. Every wait also ends when a stop signal
// arrives (net/interrupt.h).
#pragma once

#include <cstddef>
#include <vector>

#include <poll.h>

class event_loop {
 public:
  // Adding a descriptor twice or forgetting one not watched changes nothing.
  void watch(int descriptor);
  void forget(int descriptor);
  std::size_t size() const { return m_polled.size() - 1; }

  // Waits up to `timeout_ms` (negative: no limit; 0: only looks) for watched descriptors to
  // become readable. Returns them; the list holds until the next call. Empty after a time-out,
  // a failed wait or a stop signal.
  const std::vector<int>& wait(int timeout_ms);

 private:
  void ensure_started();

  std::vector<pollfd> m_polled;   // [0] is the stop signal's pipe, or an entry poll ignores
  std::vector<int> m_position;    // index into m_polled by descriptor; 0 when not watched
  std::vector<int> m_ready;
};

// The one-socket wait of a sequential attempt: true when `descriptor` became readable within
// `timeout_ms` (negative: no limit), false on a time-out, a failed wait or a stop signal.
bool wait_readable(int descriptor, int timeout_ms);
