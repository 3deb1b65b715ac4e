// The generic parameter layer: report settings shared by the writers (output format, column
// separator, date and time patterns, verbosity, input filters, results file).
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "params/arg_list.h"

// The tool's identification, as printed in the usage text, the run header line, the XML tool
// attribute and -version. The version is the one CMake's project() gives the build.
inline constexpr const char* k_tool_name = "zib";
inline constexpr const char* k_tool_version = ZIB_VERSION;

enum class parse_result { ok, failed, help, version };

class cmd_params {
 public:
  cmd_params() = default;
  virtual ~cmd_params() = default;

  // The library layer. Writes the run header line (identification and the quoted command
  // line) into `header`, then reads and consumes its switches. Returns help for "-h",
  // "-help", "/?", "--help" or an argument list holding only the program path; the caller
  // prints the usage and ends with status 0. Returns version for "-version" (after help): the
  // caller prints the version line and ends with status 0, whatever else was given.
  parse_result parse_generic(arg_list& args, std::ostream& header);

  // Sets the column separator and derives the query character substitution from it.
  void set_separator(std::string text);

  // The run header line comes first in the text, CSV and XML reports; JSON Lines and RFC 4180
  // CSV start with their first object and their heading.
  bool writes_run_header() const { return !json && !json_names && !rfc4180; }
  // Rows with a heading: the text and CSV reports.
  bool table_report() const { return !xml && !json && !json_names; }

  std::string results_file;        // empty: standard output
  std::uint8_t append = 0;         // -append: the results file is added to, not truncated
  std::uint8_t xml = 0;
  std::uint8_t csv = 0;
  std::uint8_t json = 0;           // -json: JSON Lines, no run header line, no heading
  std::uint8_t json_names = 0;     // -json_names: one JSON object per name, nothing else
  std::uint8_t rfc4180 = 0;        // -rfc4180: CSV as RFC 4180 and spreadsheets read it
  std::uint8_t presentation = 0;   // -presentation: record data in its standard text form
  std::uint8_t why_columns = 0;    // -why_columns: line, asked, rcode and outcome after the data
  std::string separator = " | ";
  std::uint8_t csv_layout = 0;     // set by -no_whitespace
  std::uint8_t keep_space = 1;     // the extra blank before the time column in CSV
  std::uint8_t quoted_csv = 0;     // -enable_quoted_csv_fields (nothing is ever quoted)
  char query_char_from = '|';      // in a query, every from-char becomes to-char; 0: none
  char query_char_to = ';';
  std::uint8_t heading_pending = 0;
  std::string date_format = "yyyy-mm-dd";
  std::string time_format = "hh:mm:ss.xxx";
  std::uint32_t datetime_format = 0;  // compiled from the two patterns
  std::uint16_t year_low = 1900;      // set with the format word; not used by formatting
  std::uint16_t year_high = 2600;
  std::uint8_t pair_datetime = 0;
  std::uint8_t verbose = 0;
  std::vector<std::string> filters;   // raw -filter values in the order given
  std::uint8_t use_stdin = 0;
  std::uint8_t use_enumdir = 0;       // directory input is not part of this tool; stays 0
  std::string tool_id = k_tool_name;
};
