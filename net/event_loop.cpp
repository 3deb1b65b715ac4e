#include "net/event_loop.h"

#include <unistd.h>

#include "net/interrupt.h"

namespace {

// The wake pipe's entry, or one that poll() skips (a negative descriptor) when there is none.
pollfd interrupt_entry() { return {interrupt_descriptor(), POLLIN, 0}; }

bool readable(const pollfd& entry) { return (entry.revents & (POLLIN | POLLERR | POLLHUP)) != 0; }

}  // namespace

void event_loop::ensure_started() {
  if (m_polled.empty()) m_polled.push_back(interrupt_entry());
}

void event_loop::watch(int descriptor) {
  ensure_started();
  if (descriptor < 0) return;
  if (static_cast<std::size_t>(descriptor) >= m_position.size()) m_position.resize(descriptor + 1, 0);
  if (m_position[descriptor] != 0) return;
  m_position[descriptor] = static_cast<int>(m_polled.size());
  m_polled.push_back({descriptor, POLLIN, 0});
}

void event_loop::forget(int descriptor) {
  if (descriptor < 0 || static_cast<std::size_t>(descriptor) >= m_position.size()) return;
  const int at = m_position[descriptor];
  if (at == 0) return;
  // The last entry takes the freed place, so the array stays dense for poll().
  m_polled[at] = m_polled.back();
  m_position[m_polled[at].fd] = at;
  m_polled.pop_back();
  m_position[descriptor] = 0;
}

const std::vector<int>& event_loop::wait(int timeout_ms) {
  ensure_started();
  m_ready.clear();
  if (interrupt_signal() != 0) return m_ready;
  const int count = ::poll(m_polled.data(), static_cast<nfds_t>(m_polled.size()), timeout_ms);
  if (count <= 0 || interrupt_signal() != 0) return m_ready;
  for (std::size_t i = 1; i < m_polled.size(); ++i)
    if (readable(m_polled[i])) m_ready.push_back(m_polled[i].fd);
  return m_ready;
}

bool wait_readable(int descriptor, int timeout_ms) {
  pollfd entries[2] = {{descriptor, POLLIN, 0}, interrupt_entry()};
  if (interrupt_signal() != 0) return false;
  const int count = ::poll(entries, 2, timeout_ms);
  return count > 0 && interrupt_signal() == 0 && readable(entries[0]);
}
