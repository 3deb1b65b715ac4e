#include "report/table_writer.h"

#include <algorithm>
#include <string>

#include "dns/record_types.h"
#include "report/csv_field.h"
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

constexpr std::size_t k_widest_ipv4 = 15;  // 255.255.255.255

column_widths widths_for(const input_params& config) {
  if (csv_mode(config)) {
    return {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  }
  column_widths widths;
  // As wide as the longest server the run may ask, so every row lines up.
  std::size_t server = config.resolvers.empty() ? config.server.size() : 0;
  for (const resolver_entry& r : config.resolvers) server = std::max(server, r.address.size());
  // Iteratively, any server may give the last word: as wide as an IPv4 address or a root.
  if (config.iterative != 0) server = k_widest_ipv4;
  for (const std::string& root : config.roots) server = std::max(server, root.size());
  widths.server = static_cast<std::streamsize>(server);
  widths.date = static_cast<std::streamsize>(date_column_width(config.date_format));
  widths.time = static_cast<std::streamsize>(time_column_width(config.time_format));
  return widths;
}

// The blank in front of the time column lines up the aligned report; CSV keeps it only on
// request, since it would otherwise end up inside the time value.
bool blank_before_time(const input_params& config) {
  return !csv_mode(config) || config.keep_space != 0;
}

// Rows end in CR LF under -rfc4180, as RFC 4180 has them.
std::string_view line_end(const input_params& config) { return config.rfc4180 ? "\r\n" : "\n"; }

// One field and the separator after it (`last`: none). Under -rfc4180 numbers go the same way
// as text, since a separator may hold a digit.
struct field_writer {
  std::string& out;
  const input_params& config;

  void text(std::string_view value, const field_format& format, bool last = false) const {
    if (config.rfc4180)
      append_csv_field(out, value, config.separator);
    else
      append_field(out, value, format);
    if (!last) append_field(out, config.separator);
  }
  void number(std::uint64_t value, const field_format& format) const {
    if (!config.rfc4180) {
      append_field(out, value, format);
      append_field(out, config.separator);
      return;
    }
    std::string digits;
    append_field(digits, value, format);
    text(digits, format);
  }
};

void write_heading(std::ostream& out, const input_params& config, const column_widths& w) {
  const struct {
    std::string_view text;
    std::streamsize width;
  } headings[] = {{"query", w.query},   {"comment", w.comment}, {"status", w.status},
                  {"id", w.id},         {"DNSserv", w.server},  {"date", w.date},
                  {"time-UTC", w.time}, {"type", w.type},       {"tname", w.type_name},
                  {"class", w.klass},   {"ttl", w.ttl},         {"size", w.size}};
  std::string line;
  const field_writer field{line, config};
  for (const auto& heading : headings) {
    // The delimited heading never has the blank: it names the columns, and a reader splits it
    // like any row, so " time-UTC" would be a different column name.
    if (heading.text == "time-UTC" && !csv_mode(config)) append_field(line, " ");
    field.text(heading.text, left_in(heading.width));
  }
  const bool why = config.why_columns != 0;
  field.text("data", k_plain, !why);
  if (why) {
    for (const std::string_view heading : {"line", "asked", "rcode"}) field.text(heading, k_plain);
    field.text("outcome", k_plain, true);
  }
  line += line_end(config);
  write_field(out, line);
}

// -why_columns: after the data, which then has a separator after it too. The name as asked is
// a query like the first column, so it gets the same character substitution.
void write_why_fields(std::string& out, const row_context& context, const input_params& config) {
  const field_writer field{out, config};
  const why_values why = why_of(context);
  append_field(out, config.separator);
  field.text(why.line, k_plain);
  std::string asked(why.asked);
  if (config.query_char_from != 0) std::replace(asked.begin(), asked.end(), config.query_char_from, config.query_char_to);
  field.text(asked, k_plain);
  field.text(why.rcode, k_plain);
  field.text(why.outcome, k_plain, true);
}

// The columns before the data are appended straight to the row's text; the data column is
// written through the row's stream, like every other writer of record data.
void write_fields(report_row& row, const DNS_RES_RECORD& record, std::string_view comment,
                  std::string_view status, const input_params& config, const column_widths& w,
                  const row_context* why) {
  std::string& out = row.text();
  const field_writer field{out, config};

  field.text(record.name, left_in(w.query));
  field.text(comment, left_in(w.comment));
  field.text(status, left_in(w.status));
  field.number(record.id, {w.id, field_align::right, '0', true});
  field.text(record.server, right_in(w.server));

  const datetime_texts& when = timestamp_texts(record.timestamp, config.datetime_format);
  field.text(when.date, left_in(w.date));
  if (blank_before_time(config)) append_field(out, " ");
  field.text(when.time, left_in(w.time));

  field.number(record.type, right_in(w.type));
  field.text(record_type_name(record.type), right_in(w.type_name));
  field.number(record.class_, right_in(w.klass));
  field.number(record.ttl, right_in(w.ttl));
  field.number(record.rdlength, right_in(w.size));

  // With -presentation the data column is the standard text form; a question has no data to
  // tell and keeps its "<none>". Under -rfc4180 the data is made first, then escaped and quoted
  // as one field.
  const std::size_t data_at = out.size();
  const auto presentation = config.presentation != 0 ? record_presentation(record) : std::nullopt;
  if (presentation)
    out += *presentation;
  else
    append_record_data(out, record, csv_mode(config) ? ";" : "; ");
  if (config.rfc4180) {
    const std::string data = out.substr(data_at);
    out.resize(data_at);
    append_csv_field(out, data, config.separator, presentation ? csv_text::presentation : csv_text::bytes);
  }
  if (why != nullptr) write_why_fields(out, *why, config);
  out += line_end(config);
}

}  // namespace

void write_table_heading(std::ostream& out, const input_params& config) {
  write_heading(out, config, widths_for(config));
}

void write_table_row(DNS_RES_RECORD& record, std::ostream& out, std::string_view comment,
                     std::string_view status, input_params& config, const row_context* why) {
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
  write_fields(row, record, comment, status, config, w, why);
  row.write_to(out);
}
