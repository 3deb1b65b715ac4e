// The output side of a run with many names in flight, shared by the bulk run and the iterative
// run: each finished name is rendered at once, through the same steps as one at a time, held
// until its turn (driver/hold_queue) and written in input order, the heading in front of the
// run's first asked name.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "driver/bulk_run.h"
#include "driver/hold_queue.h"
#include "driver/query_run.h"
#include "driver/run_progress.h"
#include "params/input_params.h"
#include "report/stream_format.h"

class ordered_output {
 public:
  ordered_output(std::ostream& out, input_params& config, const run_extras& extras, run_progress& progress,
                 name_outcome& worst, std::uint64_t lines_before);

  // A name taken from the input may start while the held reports leave room.
  bool has_room() const { return m_hold.has_room(); }
  // Its place in the output, in input order.
  std::uint64_t start() { return m_hold.start(); }
  bool empty() const { return m_hold.empty(); }
  std::uint64_t resume_line() const { return m_hold.resume_line(); }

  // The name `sequence` is done: a name that could not be built, or one with its attempts
  // (none: a name never asked, as with -retry -1); `note` for an iterative resolution.
  void finish(std::uint64_t sequence, const name_entry& name, std::vector<finished_attempt>& attempts,
              const resolution_note* note = nullptr);
  // Writes every name that may be written now, through one flush; false once the output failed.
  bool write_finished();

 private:
  std::ostream& m_out;
  input_params& m_config;
  const run_extras& m_extras;
  run_progress& m_progress;
  name_outcome& m_worst;
  hold_queue m_hold;
  bool m_heading_pending;
  report_row m_render;
  bool m_output_failed = false;
};
