// The names of a bulk run between their start and their output. A name finished while an
// earlier one is still in flight waits here as the bytes its report will write, not as its
// messages, so a slow name holds back the output but not the names after it: they go on being
// asked until the held bytes reach the limit (-hold_mb). With -unordered a finished name is
// written at once and nothing waits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "net/query_transaction.h"
#include "report/run_summary.h"

// One name's report, made in memory before it is written.
struct rendered_name {
  std::string bytes;
  bool asked = false;       // at least one attempt was reported
  bool rows_first = false;  // its first attempt wrote rows: the run's heading goes before them
  name_tally tally;
  name_outcome outcome = name_outcome::answered;
  std::uint64_t line = 0;       // input line number
  std::uint64_t input_end = 0;  // bytes of input read up to the end of its line
  bool line_end = true;         // the last lookup of its line (-qtypes and -cidr make several)
};

class hold_queue {
 public:
  // `limit` in bytes; `ordered` false writes each name when it finishes.
  hold_queue(bool ordered, std::size_t limit, std::uint64_t lines_before);

  // A name taken from the input, in input order; returns its number in this queue.
  std::uint64_t start();
  // The name's report is ready.
  void finish(std::uint64_t sequence, rendered_name&& name);

  // True while the held bytes leave room for more names to start.
  bool has_room() const { return m_held < m_limit; }
  bool empty() const { return m_entries.empty(); }
  std::size_t held_bytes() const { return m_held; }

  // Hands every name that may be written now to `write`, in the order they must be written;
  // each name comes out once.
  template <typename Write>
  void drain(Write&& write);

  // Every input line up to this one belongs to a name that is written, or to none.
  std::uint64_t resume_line() const { return m_resume_line; }

 private:
  struct entry {
    bool finished = false;
    bool written = false;
    std::size_t held = 0;  // the report's bytes counted in m_held while it waits
    rendered_name name;
  };
  // The most finished lookups of one line held back for the line's last.
  static constexpr std::uint64_t k_line_lookups_held = 4096;
  // What the allocator adds to a block it hands out: its header, and the rounding up.
  static constexpr std::size_t k_allocation_overhead = 64;
  // What an entry costs while it waits, beyond its report's bytes.
  static constexpr std::size_t k_entry_cost = sizeof(entry);

  void pop_written_front();
  // Moves m_writable_end past every line whose lookups are all finished, in order.
  void note_finished_lines();
  // The next name to write in input order, or null.
  rendered_name* ready_front();

  bool m_ordered;
  std::size_t m_limit;
  std::size_t m_held = 0;
  std::uint64_t m_base = 0;  // sequence number of the front entry
  std::uint64_t m_scanned = 0;       // entries before it are all finished
  std::uint64_t m_writable_end = 0;  // entries before it belong to lines all finished
  std::deque<entry> m_entries;
  std::vector<rendered_name> m_finished_unordered;
  std::uint64_t m_resume_line;
};

template <typename Write>
void hold_queue::drain(Write&& write) {
  if (m_ordered) {
    note_finished_lines();
    // A line's lookups go out together once its last is done, so that a stop leaves no line
    // half written; only a line of more lookups than are held for one (a -cidr range) or a full
    // hold lets part of a line out before.
    while (m_base < m_writable_end || m_held >= m_limit || m_scanned - m_base > k_line_lookups_held) {
      rendered_name* name = ready_front();
      if (name == nullptr) break;
      write(*name);
      m_resume_line = name->line_end ? name->line : name->line - 1;
      m_entries.front().written = true;
      pop_written_front();
    }
    return;
  }
  for (rendered_name& name : m_finished_unordered) write(name);
  m_finished_unordered.clear();
  pop_written_front();
}
