#include "driver/hold_queue.h"

#include <utility>

hold_queue::hold_queue(bool ordered, std::size_t limit, std::uint64_t lines_before)
    : m_ordered(ordered), m_limit(limit), m_resume_line(lines_before) {}

std::uint64_t hold_queue::start() {
  m_entries.emplace_back();
  m_held += k_entry_cost;
  return m_base + m_entries.size() - 1;
}

void hold_queue::finish(std::uint64_t sequence, rendered_name&& name) {
  entry& e = m_entries[static_cast<std::size_t>(sequence - m_base)];
  e.finished = true;
  if (m_ordered) {
    e.name = std::move(name);
    e.held = e.name.bytes.capacity();
    m_held += e.held;
    return;
  }
  // In completion order the name goes out now; its entry stays, empty, until every earlier
  // name is out too, so the line to resume from is known.
  e.written = true;
  e.name.line = name.line;
  m_finished_unordered.push_back(std::move(name));
}

rendered_name* hold_queue::ready_front() {
  if (m_entries.empty() || !m_entries.front().finished) return nullptr;
  return &m_entries.front().name;
}

void hold_queue::pop_written_front() {
  while (!m_entries.empty() && m_entries.front().written) {
    m_resume_line = m_entries.front().name.line;
    m_held -= k_entry_cost + m_entries.front().held;
    m_entries.pop_front();
    ++m_base;
  }
}
