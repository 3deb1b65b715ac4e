#include "driver/run_progress.h"

#include <cstdio>

#include "driver/error_printer.h"

namespace {

constexpr auto k_redraw_every = std::chrono::milliseconds(250);

// "40 s", "12 min", "3.5 h": as precise as an estimate deserves.
std::string duration_text(double seconds) {
  char text[32];
  if (seconds < 100)
    std::snprintf(text, sizeof text, "%.0f s", seconds);
  else if (seconds < 6000)
    std::snprintf(text, sizeof text, "%.0f min", seconds / 60);
  else
    std::snprintf(text, sizeof text, "%.1f h", seconds / 3600);
  return text;
}

}  // namespace

run_progress::run_progress(bool shown, const run_summary& summary) : m_shown(shown), m_summary(summary) {}

void run_progress::set_input_size(std::uint64_t size, std::uint64_t skipped) {
  m_input_size = size;
  m_input_skipped = m_input_done = skipped;
}

std::string run_progress::text() const {
  const double elapsed = elapsed_seconds();
  std::string text = m_summary.progress_text(elapsed);
  if (!m_note.empty()) text += ", " + m_note;
  if (m_input_size == 0) return text;
  const double done = static_cast<double>(std::min(m_input_done, m_input_size));
  char share[96];
  std::snprintf(share, sizeof share, ", %.0f%% of the input", 100.0 * done / static_cast<double>(m_input_size));
  text += share;
  // The rate since the run began, over what this run itself has done (not what it skipped).
  const double rate = (done - static_cast<double>(m_input_skipped)) / elapsed;
  if (rate > 0 && done < static_cast<double>(m_input_size))
    text += ", about " + duration_text((static_cast<double>(m_input_size) - done) / rate) + " left";
  return text;
}

void run_progress::tick() {
  if (!m_shown) return;
  const clock::time_point now = clock::now();
  if (now < m_next_draw) return;
  m_next_draw = now + k_redraw_every;
  const std::string line = text();
  erase_terminal_line();
  std::fputs(line.c_str(), stderr);
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
