#include "driver/hold_queue.h"

#include <algorithm>
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
    // Its bytes and its tally's, each a block of the allocator's with its own overhead.
    e.held = e.name.bytes.capacity() + e.name.tally.heap_bytes() + 2 * k_allocation_overhead;
    m_held += e.held;
    return;
  }
  // In completion order the name goes out now; its entry stays, empty, until every earlier
  // name is out too, so the line to resume from is known.
  e.written = true;
  e.name.line = name.line;
  e.name.line_end = name.line_end;
  m_finished_unordered.push_back(std::move(name));
}

rendered_name* hold_queue::ready_front() {
  if (m_entries.empty() || !m_entries.front().finished) return nullptr;
  return &m_entries.front().name;
}

void hold_queue::note_finished_lines() {
  m_scanned = std::max(m_scanned, m_base);
  while (m_scanned < m_base + m_entries.size()) {
    const entry& e = m_entries[static_cast<std::size_t>(m_scanned - m_base)];
    if (!e.finished) break;
    ++m_scanned;
    if (e.name.line_end) m_writable_end = m_scanned;
  }
}

void hold_queue::pop_written_front() {
  while (!m_entries.empty() && m_entries.front().written) {
    const rendered_name& name = m_entries.front().name;
    m_resume_line = name.line_end ? name.line : name.line - 1;
    m_held -= k_entry_cost + m_entries.front().held;
    m_entries.pop_front();
    ++m_base;
  }
}
