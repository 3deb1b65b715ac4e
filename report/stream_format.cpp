#include "report/stream_format.h"

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
  out << text;
}

void write_field(std::ostream& out, std::uint64_t value, const field_format& format) {
  apply_format(out, format);
  out << static_cast<unsigned long long>(value);
}
