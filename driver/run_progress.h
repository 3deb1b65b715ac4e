// The status line on standard error while a run goes on, redrawn at most four times a second
// and erased at the end, so the terminal is left as the run found it. When the input is a file
// of known size, it also shows the share of the input done and an estimate of the time left.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "report/run_summary.h"

class run_progress {
 public:
  using clock = std::chrono::steady_clock;

  run_progress(bool shown, const run_summary& summary);
  // The input is `size` bytes long; `skipped` of them precede the first name asked.
  void set_input_size(std::uint64_t size, std::uint64_t skipped);
  // A few words the line ends with (how the resolvers stand); empty: none.
  void set_note(std::string note) { m_note = std::move(note); }
  // The names up to this many bytes of input are written.
  void input_done(std::uint64_t bytes) { m_input_done = bytes; }
  // Redraws the line when a quarter of a second has passed since the last time.
  void tick();
  // Erases the line, if it was ever drawn.
  void finish();
  double elapsed_seconds() const;
  // The status line's text; empty share and estimate while the input's size is unknown.
  std::string text() const;

 private:
  bool m_shown;
  bool m_drawn = false;
  const run_summary& m_summary;
  clock::time_point m_start = clock::now();
  clock::time_point m_next_draw = m_start;
  std::uint64_t m_input_size = 0;  // 0: unknown
  std::uint64_t m_input_skipped = 0;
  std::uint64_t m_input_done = 0;
  std::string m_note;
};
