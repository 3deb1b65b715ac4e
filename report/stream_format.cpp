#include "report/stream_format.h"

#include <algorithm>
#include <charconv>

namespace {

// Fields are padded and converted here rather than by the stream's num_put facet and padding
// code, which cost a locale lookup per number. The bytes are those of the formatted insertion
// under the "C" locale that zib always runs in.
std::string_view digits_of(std::uint64_t value, bool hex, char (&digits)[24]) {
  const auto end = std::to_chars(digits, digits + sizeof digits, value, hex ? 16 : 10).ptr;
  return {digits, static_cast<std::size_t>(end - digits)};
}

std::size_t padding_for(std::string_view text, const field_format& format) {
  const auto width = static_cast<std::size_t>(std::max<std::streamsize>(format.width, 0));
  return width > text.size() ? width - text.size() : 0;
}

// One sputn per field, and the stream left as a formatted insertion leaves it: the format set
// by apply_format, width back at 0, badbit when the buffer takes less than the whole field.
void put_field(std::ostream& out, std::string_view text, const field_format& format) {
  const std::ostream::sentry ready(out);  // honours a failed stream, tie and unitbuf
  if (ready) {
    const std::size_t pad = padding_for(text, format);
    char small[128];
    std::string large;
    std::string_view field = text;
    if (pad != 0) {
      char* start = small;
      if (pad + text.size() > sizeof small) {
        large.resize(pad + text.size());
        start = large.data();
      }
      const bool right = format.align == field_align::right;
      std::fill_n(start + (right ? 0 : text.size()), pad, format.fill);
      std::copy(text.begin(), text.end(), start + (right ? pad : 0));
      field = std::string_view(start, pad + text.size());
    }
    const auto size = static_cast<std::streamsize>(field.size());
    if (out.rdbuf()->sputn(field.data(), size) != size) out.setstate(std::ios_base::badbit);
  }
  out.width(0);
}

}  // namespace

void apply_format(std::ostream& out, const field_format& format) {
  out.setf(format.hex ? std::ios_base::hex : std::ios_base::dec, std::ios_base::basefield);
  out.setf(format.align == field_align::left ? std::ios_base::left : std::ios_base::right,
           std::ios_base::adjustfield);
  out.unsetf(std::ios_base::showbase | std::ios_base::uppercase | std::ios_base::showpos);
  out.fill(format.fill);
  out.width(format.width);
}

void write_field(std::ostream& out, std::string_view text, const field_format& format) {
  apply_format(out, format);
  put_field(out, text, format);
}

void write_field(std::ostream& out, std::uint64_t value, const field_format& format) {
  apply_format(out, format);
  char digits[24];  // 2^64 has 20 decimal digits
  put_field(out, digits_of(value, format.hex, digits), format);
}

void append_field(std::string& row, std::string_view text, const field_format& format) {
  const std::size_t pad = padding_for(text, format);
  if (format.align == field_align::right) row.append(pad, format.fill);
  row.append(text);
  if (format.align == field_align::left) row.append(pad, format.fill);
}

void append_field(std::string& row, std::uint64_t value, const field_format& format) {
  char digits[24];
  append_field(row, digits_of(value, format.hex, digits), format);
}

report_row::report_row() : m_appender(m_text), m_stream(&m_appender) {}

void report_row::clear() {
  m_text.clear();
  m_stream.clear();
}

void report_row::write_to(std::ostream& out) const {
  out.write(m_text.data(), static_cast<std::streamsize>(m_text.size()));
}

report_row::appender::int_type report_row::appender::overflow(int_type c) {
  if (!traits_type::eq_int_type(c, traits_type::eof())) m_text.push_back(traits_type::to_char_type(c));
  return traits_type::not_eof(c);
}

std::streamsize report_row::appender::xsputn(const char* s, std::streamsize n) {
  m_text.append(s, static_cast<std::size_t>(n));
  return n;
}

report_row& shared_report_row() {
  static report_row row;
  return row;
}
