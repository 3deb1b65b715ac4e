#include "params/cmd_params.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <string_view>

#include "time/datetime_format.h"

namespace {

constexpr std::array<std::string_view, 4> k_help_switches = {"-h", "-help", "/?", "--help"};

bool wants_help(const arg_list& args) {
  if (args.size() <= 1) return true;  // the program path alone
  for (const std::string& arg : args) {
    const std::string lowered = to_lower_ascii(arg);
    if (std::find(k_help_switches.begin(), k_help_switches.end(), lowered) != k_help_switches.end())
      return true;
  }
  return false;
}

// The run header line: identification, then the command line in double quotes so that a
// results file says how it was made. Arguments holding a blank get single quotes, which is
// enough to paste the line back into a shell in the common cases.
void write_header(const arg_list& args, std::string_view tool_id, std::ostream& header) {
  header << tool_id << ' ' << k_tool_version << " cmdline: \"";
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (i != 0) header << ' ';
    if (args[i].find(' ') != std::string::npos)
      header << '\'' << args[i] << '\'';
    else
      header << args[i];
  }
  header << '"';
}

// A refused pattern keeps the one held so far; the message names the text as typed.
void take_pattern(arg_list& args, std::string_view name, bool (*valid)(std::string_view),
                  std::string& pattern) {
  const auto value = take_value(args, name);
  if (!value) return;
  if (valid(*value))
    pattern = to_lower_ascii(*value);
  else
    std::cerr << "invalid " << *value << ", using default format\n";
}

}  // namespace

void cmd_params::set_separator(std::string text) {
  separator = std::move(text);
  query_char_from = 0;
  query_char_to = 0;
  const bool tab = to_lower_ascii(separator) == "tab" || to_lower_ascii(separator) == "\\t";
  // RFC 4180 quotes a field that holds the separator, so no query needs a character replaced.
  if (rfc4180) {
    if (tab) separator.assign(1, '\t');
    return;
  }
  if (quoted_csv) return;
  if (separator.find('|') != std::string::npos) {
    query_char_from = '|';
    query_char_to = ';';
  } else if (separator.find(',') != std::string::npos) {
    query_char_from = ',';
    query_char_to = ' ';
  } else if (tab) {
    separator.assign(1, '\t');  // a real tab is awkward to type on a command line
  }
}

parse_result cmd_params::parse_generic(arg_list& args, std::ostream& header) {
  write_header(args, tool_id, header);
  if (wants_help(args)) return parse_result::help;
  if (take_switch(args, "-version")) return parse_result::version;

  // Read before any separator is set, so that the substitution rule sees it.
  if (take_switch(args, "-enable_quoted_csv_fields")) {
    quoted_csv = 1;
    keep_space = 0;
    set_separator(separator);
  }
  if (take_switch(args, "-csv")) {
    csv = 1;
    xml = 0;
    set_separator(",");
  }
  // CSV that readers split right: no run header line, every field that needs it quoted, and no
  // blank in front of the time, which would make it a text rather than a time.
  if (take_switch(args, "-rfc4180")) {
    rfc4180 = 1;
    csv = 1;
    keep_space = 0;
    set_separator(",");
  }
  if (take_switch(args, "-xml")) {  // after -csv: given both, XML wins
    xml = 1;
    csv = 0;
    rfc4180 = 0;
    heading_pending = 0;
    set_separator("");
  }
  if (auto value = take_value(args, "-csv_separator")) set_separator(std::move(*value));
  if (take_switch(args, "-no_whitespace")) {
    csv_layout = 1;
    csv = 1;  // delimited rows, as -csv gives, but keeping the separator chosen so far
    keep_space = 0;
    std::string compact = separator;
    std::erase(compact, ' ');
    set_separator(std::move(compact));
  }
  // Last of the format switches: JSON Lines win over XML and CSV, whose frame and heading would
  // break the one-object-per-line form.
  const bool json_rows = take_switch(args, "-json");
  const bool json_per_name = take_switch(args, "-json_names");
  if (json_rows || json_per_name) {
    json = json_rows ? 1 : 0;
    json_names = json_per_name ? 1 : 0;
    xml = 0;
    rfc4180 = 0;
    heading_pending = 0;
  }
  // An object per row or an object per name: one output cannot be both.
  if (json_rows && json_per_name) {
    std::cerr << "invalid combination of commands: -json and -json_names\n";
    return parse_result::failed;
  }
  if (take_switch(args, "-presentation")) presentation = 1;
  if (take_switch(args, "-why_columns")) why_columns = 1;
  // A second XML document cannot follow the first in one file.
  if (take_switch(args, "-append")) append = 1;
  if (append && xml) {
    std::cerr << "invalid combination of commands: -append and -xml\n";
    return parse_result::failed;
  }
  take_pattern(args, "-dateformat", valid_date_pattern, date_format);
  take_pattern(args, "-timeformat", valid_time_pattern, time_format);
  const bool verbose_long = take_switch(args, "-verbose");
  const bool verbose_short = take_switch(args, "-v");
  if (verbose_long || verbose_short) verbose = 1;
  // Each -filter is consumed in turn; the list shrinks by two every round, so this ends.
  while (auto value = take_value(args, "-filter")) filters.push_back(std::move(*value));
  const auto out = take_value(args, "-out");
  const auto outfile = take_value(args, "-outfile");
  if (out)
    results_file = *out;
  else if (outfile)
    results_file = *outfile;
  if (take_switch(args, "-pair_datetime")) pair_datetime = 1;

  // A refused field order is not fatal: the rows then carry an empty date.
  compile_datetime_format(date_format, time_format, pair_datetime != 0, datetime_format);
  year_low = 1900;
  year_high = 2600;
  return parse_result::ok;
}
