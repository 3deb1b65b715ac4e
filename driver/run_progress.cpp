#include "driver/run_progress.h"

#include <cstdio>
#include <string>

#include "driver/error_printer.h"

namespace {

constexpr auto k_redraw_every = std::chrono::milliseconds(250);

}  // namespace

run_progress::run_progress(bool shown, const run_summary& summary) : m_shown(shown), m_summary(summary) {}

void run_progress::tick() {
  if (!m_shown) return;
  const clock::time_point now = clock::now();
  if (now < m_next_draw) return;
  m_next_draw = now + k_redraw_every;
  const std::string text = m_summary.progress_text(elapsed_seconds());
  erase_terminal_line();
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
  m_drawn = true;
}

void run_progress::finish() {
  if (!m_drawn) return;
  erase_terminal_line();
  std::fflush(stderr);
  m_drawn = false;
}

double run_progress::elapsed_seconds() const {
  return std::chrono::duration<double>(clock::now() - m_start).count();
}
