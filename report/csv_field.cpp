#include "report/csv_field.h"

#include <cstdint>

#include "report/stream_format.h"

namespace {

constexpr std::uint8_t k_first_printable = 0x20;
constexpr std::uint8_t k_last_printable = 0x7E;
constexpr std::string_view k_formula_starts = "=+-@\t\r";
constexpr std::string_view k_always_quoted = "\"\r\n";
constexpr std::string_view k_blanks = " \t";

void append_escaped(std::string& out, std::string_view bytes) {
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (c == '\\') {
      out += "\\\\";
    } else if (byte >= k_first_printable && byte <= k_last_printable) {
      out += c;
    } else {
      out += '\\';
      append_field(out, byte, {3, field_align::right, '0', false});
    }
  }
}

}  // namespace

bool csv_needs_quotes(std::string_view field, std::string_view separator) {
  if (field.empty()) return false;
  if (field.find_first_of(separator) != std::string_view::npos ||
      field.find_first_of(k_always_quoted) != std::string_view::npos)
    return true;
  return k_formula_starts.find(field.front()) != std::string_view::npos ||
         k_blanks.find(field.front()) != std::string_view::npos || k_blanks.find(field.back()) != std::string_view::npos;
}

void append_csv_field(std::string& out, std::string_view value, std::string_view separator, csv_text kind) {
  const std::size_t start = out.size();
  if (kind == csv_text::bytes)
    append_escaped(out, value);
  else
    out += value;
  const std::string field = out.substr(start);
  if (!csv_needs_quotes(field, separator)) return;
  out.resize(start);
  out += '"';
  for (const char c : field) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}
