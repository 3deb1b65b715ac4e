// Every report field goes through here. The writers share one output stream with each other
// and with the hex view, which deliberately leaves it in hexadecimal with fill '0'; so no
// writer trusts the state it finds, and each field sets base, width, fill and adjustment
// right before it is written.
#pragma once

#include <cstdint>
#include <ios>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

enum class field_align { left, right };

struct field_format {
  std::streamsize width = 0;  // a minimum; longer values are never cut
  field_align align = field_align::left;
  char fill = ' ';
  bool hex = false;  // lower case, no "0x" prefix
};

inline constexpr field_format k_plain{};
inline constexpr field_format k_hex_byte{2, field_align::right, '0', true};

inline field_format left_in(std::streamsize width) { return {width, field_align::left, ' ', false}; }
inline field_format right_in(std::streamsize width) { return {width, field_align::right, ' ', false}; }

// Sets the stream up for exactly one field.
void apply_format(std::ostream& out, const field_format& format);

void write_field(std::ostream& out, std::string_view text, const field_format& format = k_plain);
// Numbers go through unsigned long long so that an 8-bit value is never taken for a character
// and a 32-bit TTL above 2^31 is never shown negative.
void write_field(std::ostream& out, std::uint64_t value, const field_format& format = k_plain);

// The same bytes as write_field, appended to a string; the stream's state plays no part.
void append_field(std::string& row, std::string_view text, const field_format& format = k_plain);
void append_field(std::string& row, std::uint64_t value, const field_format& format = k_plain);

// One report row made in memory and handed to the output in one write. Fields are appended to
// text() directly, or written through stream() by code that takes an ostream (record data,
// hex bytes); both land in the same text. Writing field by field to the output would cost a
// call per field; the text keeps its capacity from row to row.
class report_row {
 public:
  report_row();
  report_row(const report_row&) = delete;
  report_row& operator=(const report_row&) = delete;

  std::string& text() { return m_text; }
  std::ostream& stream() { return m_stream; }
  void clear();
  // The whole row in one write to the output's buffer. The caller flushes once per attempt,
  // so an attempt's rows reach the file together and before the next attempt starts.
  void write_to(std::ostream& out) const;

 private:
  class appender : public std::streambuf {
   public:
    explicit appender(std::string& text) : m_text(text) {}

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* s, std::streamsize n) override;

   private:
    std::string& m_text;
  };

  std::string m_text;
  appender m_appender;
  std::ostream m_stream;
};

// zib writes one row at a time on one thread, so one row serves the whole run: a stream made
// per row would cost a locale copy each time.
report_row& shared_report_row();
