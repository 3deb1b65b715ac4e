#include "driver/ordered_output.h"

#include <algorithm>
#include <cerrno>

#include "driver/output_file.h"
#include "report/table_writer.h"

ordered_output::ordered_output(std::ostream& out, input_params& config, const run_extras& extras,
                               run_progress& progress, name_outcome& worst, std::uint64_t lines_before)
    : m_out(out), m_config(config), m_extras(extras), m_progress(progress), m_worst(worst),
      m_hold(!config.unordered, static_cast<std::size_t>(config.hold_mb) << 20, lines_before),
      m_heading_pending(config.heading_pending != 0 && config.table_report()) {
  // Names are rendered before their turn to be written: the heading is put in front of the
  // run's first name here, never by a row writer.
  m_config.heading_pending = 0;
}

void ordered_output::finish(std::uint64_t sequence, const name_entry& entry, std::vector<finished_attempt>& attempts,
                            const resolution_note* note) {
  rendered_name name;
  name.line = entry.line;
  name.input_end = entry.input_end;
  name.line_end = entry.line_end;
  name.outcome = name_outcome::no_reply;
  m_render.clear();
  if (!entry.built) {
    write_bad_name(m_render.stream(), m_config, entry);
    // Its -why_columns row is the name's report: the heading goes before it, if it is first.
    name.asked = name.rows_first = m_config.why_columns != 0;
  } else if (!attempts.empty()) {
    const name_report report =
        report_name(m_render.stream(), attempts, m_config, &name.tally, {entry.line, entry.asked, {}}, note);
    name.asked = true;
    name.rows_first = report.rows_first;
    name.outcome = report.outcome;
  }
  name.bytes.assign(m_render.text());
  m_hold.finish(sequence, std::move(name));
}

bool ordered_output::write_finished() {
  if (m_output_failed) return false;
  bool any = false;
  m_hold.drain([&](rendered_name& name) {
    if (!any) errno = 0;
    any = true;
    if (m_heading_pending && name.asked) {
      if (name.rows_first) write_table_heading(m_out, m_config);
      m_heading_pending = false;
    }
    m_out.write(name.bytes.data(), static_cast<std::streamsize>(name.bytes.size()));
    if (m_extras.summary) m_extras.summary->add(name.tally);
    m_worst = std::max(m_worst, name.outcome);
    m_progress.input_done(name.input_end);
  });
  if (!any) return true;
  m_output_failed = output_failed(m_out);
  return !m_output_failed;
}
