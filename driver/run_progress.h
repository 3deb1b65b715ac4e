// The status line on standard error while a run goes on, redrawn at most four times a second
// and erased at the end, so the terminal is left as the run found it.
#pragma once

#include <chrono>

#include "report/run_summary.h"

class run_progress {
 public:
  using clock = std::chrono::steady_clock;

  run_progress(bool shown, const run_summary& summary);
  // Redraws the line when a quarter of a second has passed since the last time.
  void tick();
  // Erases the line, if it was ever drawn.
  void finish();
  double elapsed_seconds() const;

 private:
  bool m_shown;
  bool m_drawn = false;
  const run_summary& m_summary;
  clock::time_point m_start = clock::now();
  clock::time_point m_next_draw = m_start;
};
