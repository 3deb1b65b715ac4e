#include "net/event_loop.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "net/interrupt.h"

// epoll on Linux, poll() everywhere else. macOS has kqueue, but no build here could compile a
// kqueue loop (Debian packages no kqueue for Linux), and poll() with shared sockets watches
// few descriptors: bench/event_loop measures it against epoll.
#if defined(__linux__) && !defined(ZIB_EVENT_LOOP_POLL)
#define ZIB_LOOP_EPOLL 1
#include <sys/epoll.h>
#else
#define ZIB_LOOP_POLL 1
#endif

namespace {

// The stop signal's pipe is watched under this token, which no caller uses; its events are
// never handed out: a stop empties the wait's result instead.
constexpr std::uint64_t k_interrupt_token = UINT64_MAX;

#if defined(ZIB_LOOP_EPOLL)
// What each descriptor is watched for, by descriptor number; descriptors are small numbers.
class watch_table {
 public:
  static constexpr std::uint8_t none = 0, reading = 1, writing = 2, both = 3;
  std::uint8_t at(int descriptor) const {
    return static_cast<std::size_t>(descriptor) < m_state.size() ? m_state[static_cast<std::size_t>(descriptor)] : none;
  }
  void set(int descriptor, std::uint8_t state) {
    if (static_cast<std::size_t>(descriptor) >= m_state.size()) m_state.resize(static_cast<std::size_t>(descriptor) + 1, none);
    m_state[static_cast<std::size_t>(descriptor)] = state;
  }

 private:
  std::vector<std::uint8_t> m_state;
};

std::uint8_t state_of(interest what) {
  return what == interest::read ? watch_table::reading : what == interest::write ? watch_table::writing : watch_table::both;
}

// Room for this many events per wait at first; it doubles while waits come back full.
constexpr std::size_t k_first_batch = 64;
constexpr std::size_t k_largest_batch = 4096;
#endif

}  // namespace

#if defined(ZIB_LOOP_EPOLL)

struct event_loop::backend {
  int set = ::epoll_create1(EPOLL_CLOEXEC);
  watch_table watched;
  std::vector<epoll_event> raw = std::vector<epoll_event>(k_first_batch);
  std::vector<ready_event> ready;

  backend() {
    if (set != -1 && interrupt_descriptor() != -1) {
      epoll_event wake{};
      wake.events = EPOLLIN;
      wake.data.u64 = k_interrupt_token;
      ::epoll_ctl(set, EPOLL_CTL_ADD, interrupt_descriptor(), &wake);
    }
  }
  ~backend() {
    if (set != -1) ::close(set);
  }

  bool watch(int descriptor, std::uint64_t token, interest what) {
    epoll_event event{};
    event.events = what == interest::read ? EPOLLIN : what == interest::write ? EPOLLOUT : EPOLLIN | EPOLLOUT;
    event.data.u64 = token;
    const int op = watched.at(descriptor) == watch_table::none ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    if (set == -1 || ::epoll_ctl(set, op, descriptor, &event) != 0) return false;
    watched.set(descriptor, state_of(what));
    return true;
  }

  void forget(int descriptor, bool closing) {
    if (watched.at(descriptor) == watch_table::none) return;
    if (!closing) ::epoll_ctl(set, EPOLL_CTL_DEL, descriptor, nullptr);
    watched.set(descriptor, watch_table::none);
  }

  void wait(int timeout_ms) {
    if (set == -1) return;
    const int count = ::epoll_wait(set, raw.data(), static_cast<int>(raw.size()), timeout_ms);
    for (int i = 0; i < count; ++i) {
      const epoll_event& e = raw[static_cast<std::size_t>(i)];
      if (e.data.u64 == k_interrupt_token) continue;
      const bool trouble = (e.events & (EPOLLERR | EPOLLHUP)) != 0;
      ready.push_back({e.data.u64, trouble || (e.events & EPOLLIN) != 0, trouble || (e.events & EPOLLOUT) != 0});
    }
    if (static_cast<std::size_t>(count) == raw.size() && raw.size() < k_largest_batch) raw.resize(raw.size() * 2);
  }
};

const char* event_loop::backend_name() { return "epoll"; }

#else

// poll() takes the whole array on every wait; entry 0 is the stop signal's pipe (or one that
// poll() skips, a negative descriptor, when there is none).
struct event_loop::backend {
  std::vector<pollfd> polled{{interrupt_descriptor(), POLLIN, 0}};
  std::vector<std::uint64_t> tokens{k_interrupt_token};
  std::vector<std::size_t> position;  // by descriptor; 0: not watched
  std::vector<ready_event> ready;

  bool watch(int descriptor, std::uint64_t token, interest what) {
    if (descriptor < 0) return false;
    const auto d = static_cast<std::size_t>(descriptor);
    if (d >= position.size()) position.resize(d + 1, 0);
    if (position[d] == 0) {
      position[d] = polled.size();
      polled.push_back({descriptor, 0, 0});
      tokens.push_back(0);
    }
    polled[position[d]].events = what == interest::read ? POLLIN : what == interest::write ? POLLOUT : POLLIN | POLLOUT;
    tokens[position[d]] = token;
    return true;
  }

  void forget(int descriptor, bool) {
    const auto d = static_cast<std::size_t>(descriptor);
    if (descriptor < 0 || d >= position.size() || position[d] == 0) return;
    // The last entry takes the freed place, so the array stays dense for poll().
    const std::size_t at = position[d];
    polled[at] = polled.back();
    tokens[at] = tokens.back();
    position[static_cast<std::size_t>(polled[at].fd)] = at;
    polled.pop_back();
    tokens.pop_back();
    position[d] = 0;
  }

  void wait(int timeout_ms) {
    const int count = ::poll(polled.data(), static_cast<nfds_t>(polled.size()), timeout_ms);
    if (count <= 0) return;
    for (std::size_t i = 1; i < polled.size(); ++i) {
      const short got = polled[i].revents;
      if (got == 0) continue;
      const bool trouble = (got & (POLLERR | POLLHUP | POLLNVAL)) != 0;
      ready.push_back({tokens[i], trouble || (got & POLLIN) != 0, trouble || (got & POLLOUT) != 0});
    }
  }
};

const char* event_loop::backend_name() { return "poll"; }

#endif

event_loop::event_loop() : m_backend(std::make_unique<backend>()) {}

event_loop::~event_loop() = default;

bool event_loop::watch(int descriptor, std::uint64_t token, interest what) {
  return descriptor >= 0 && m_backend->watch(descriptor, token, what);
}

void event_loop::forget(int descriptor, bool closing) {
  if (descriptor >= 0) m_backend->forget(descriptor, closing);
}

std::span<const ready_event> event_loop::wait(int timeout_ms) {
  m_backend->ready.clear();
  if (interrupt_signal() != 0) return {};
  m_backend->wait(timeout_ms);
  if (interrupt_signal() != 0) m_backend->ready.clear();
  return m_backend->ready;
}

bool wait_readable(int descriptor, int timeout_ms) {
  pollfd entries[2] = {{descriptor, POLLIN, 0}, {interrupt_descriptor(), POLLIN, 0}};
  if (interrupt_signal() != 0) return false;
  const int count = ::poll(entries, 2, timeout_ms);
  return count > 0 && interrupt_signal() == 0 && (entries[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0;
}
