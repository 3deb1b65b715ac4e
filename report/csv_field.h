// One field of RFC 4180 CSV (-rfc4180), written so that a CSV reader and a spreadsheet read back
// the very text written, in its own column, and never take it for a formula.
#pragma once

#include <string>
#include <string_view>

enum class csv_text {
  bytes,         // bytes from the wire or the input: escaped by the rule below
  presentation,  // already in a presentation form (printable ASCII with its own escapes)
};

// Appends `value` as one field. Bytes are escaped first, by the rule of JSON's strings: printable
// ASCII stands as it is, a backslash is doubled, and every other byte is \DDD (three decimal
// digits), so the field is ASCII and a spreadsheet, which drops control characters and turns a
// carriage return into a line feed, keeps it whole. Then the field is enclosed in double quotes,
// each quote doubled, when csv_needs_quotes says so.
void append_csv_field(std::string& out, std::string_view value, std::string_view separator,
                      csv_text kind = csv_text::bytes);

// True for a field that holds a character of the separator, a double quote, a carriage return
// or a line feed (RFC 4180 section 2), that begins or ends with a blank or a tab (which readers
// may trim), or that begins with what a spreadsheet takes for the start of a formula: "=", "+",
// "-", "@", a tab or a carriage return. Spreadsheets read a quoted field as text when told to
// (LibreOffice: "Format quoted field as text").
bool csv_needs_quotes(std::string_view field, std::string_view separator);
