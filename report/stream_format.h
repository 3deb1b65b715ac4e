// Every report field goes through here. The writers share one output stream with each other
// and with the hex view, which deliberately leaves it in hexadecimal with fill '0'; so no
// writer trusts the state it finds, and each field sets base, width, fill and adjustment
// right before it is written.
#pragma once

#include <cstdint>
#include <ios>
#include <ostream>
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
