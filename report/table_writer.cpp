#include "report/table_writer.h"

#include <algorithm>
#include <string>

#include "dns/record_types.h"
#include "report/record_data.h"
#include "report/record_text.h"
#include "report/stream_format.h"
#include "time/datetime_format.h"

namespace {

// Column widths of the aligned report, in column order. In CSV mode every width is 0.
struct column_widths {
  std::streamsize query = 40, comment = 9, status = 7, id = 4, server = 0, date = 0, time = 0,
                  type = 4, type_name = 6, klass = 5, ttl = 6, size = 4;
};

bool csv_mode(const cmd_params& config) { return config.csv != 0 || config.csv_layout != 0; }

column_widths widths_for(const input_params& config) {
  if (csv_mode(config)) {
    return {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  }
  column_widths widths;
  widths.server = static_cast<std::streamsize>(config.server.size());
  widths.date = static_cast<std::streamsize>(date_column_width(config.date_format));
  widths.time = static_cast<std::streamsize>(time_column_width(config.time_format));
  return widths;
}

// The blank in front of the time column lines up the aligned report; CSV keeps it only on
// request, since it would otherwise end up inside the time value.
bool blank_before_time(const input_params& config) {
  return !csv_mode(config) || config.keep_space != 0;
}

void write_heading(std::ostream& out, const input_params& config, const column_widths& w) {
  const std::string_view sep = config.separator;
  const struct {
    std::string_view text;
    std::streamsize width;
  } headings[] = {{"query", w.query},   {"comment", w.comment}, {"status", w.status},
                  {"id", w.id},         {"DNSserv", w.server},  {"date", w.date},
                  {"time-UTC", w.time}, {"type", w.type},       {"tname", w.type_name},
                  {"class", w.klass},   {"ttl", w.ttl},         {"size", w.size}};
  for (const auto& heading : headings) {
    // The delimited heading never has the blank: it names the columns, and a reader splits it
    // like any row, so " time-UTC" would be a different column name.
    if (heading.text == "time-UTC" && !csv_mode(config)) write_field(out, " ");
    write_field(out, heading.text, left_in(heading.width));
    write_field(out, sep);
  }
  write_field(out, "data");
  out << '\n';
}

// The columns before the data are appended straight to the row's text; the data column is
// written through the row's stream, like every other writer of record data.
void write_fields(report_row& row, const DNS_RES_RECORD& record, std::string_view comment,
                  std::string_view status, const input_params& config, const column_widths& w) {
  std::string& out = row.text();
  const std::string_view sep = config.separator;

  append_field(out, record.name, left_in(w.query));
  append_field(out, sep);
  append_field(out, comment, left_in(w.comment));
  append_field(out, sep);
  append_field(out, status, left_in(w.status));
  append_field(out, sep);
  append_field(out, record.id, {w.id, field_align::right, '0', true});
  append_field(out, sep);
  append_field(out, record.server, right_in(w.server));
  append_field(out, sep);

  const datetime_texts& when = timestamp_texts(record.timestamp, config.datetime_format);
  const std::string& date = when.date;
  const std::string& time = when.time;
  append_field(out, date, left_in(w.date));
  append_field(out, sep);
  if (blank_before_time(config)) append_field(out, " ");
  append_field(out, time, left_in(w.time));
  append_field(out, sep);

  append_field(out, record.type, right_in(w.type));
  append_field(out, sep);
  append_field(out, record_type_name(record.type), right_in(w.type_name));
  append_field(out, sep);
  append_field(out, record.class_, right_in(w.klass));
  append_field(out, sep);
  append_field(out, record.ttl, right_in(w.ttl));
  append_field(out, sep);
  append_field(out, record.rdlength, right_in(w.size));
  append_field(out, sep);

  // With -presentation the data column is the standard text form; a question has no data to
  // tell and keeps its "<none>".
  const auto presentation = config.presentation != 0 ? record_presentation(record) : std::nullopt;
  if (presentation)
    out += *presentation;
  else
    append_record_data(out, record, csv_mode(config) ? ";" : "; ");
  out += '\n';
}

}  // namespace

void write_table_heading(std::ostream& out, const input_params& config) {
  write_heading(out, config, widths_for(config));
}

void write_table_row(DNS_RES_RECORD& record, std::ostream& out, std::string_view comment,
                     std::string_view status, input_params& config) {
  const column_widths w = widths_for(config);
  if (config.heading_pending != 0) {
    write_heading(out, config, w);
    config.heading_pending = 0;
  }
  if (config.query_char_from != 0) {
    std::replace(record.name.begin(), record.name.end(), config.query_char_from,
                 config.query_char_to);
  }
  report_row& row = shared_report_row();
  row.clear();
  write_fields(row, record, comment, status, config, w);
  row.write_to(out);
}
