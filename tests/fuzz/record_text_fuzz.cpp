// Fuzz target: the standard text form of any type's data. Bytes 0-1 are the type code, byte 2
// how many of the bytes after it come before the record data in the message (names in the data
// may point there); the data runs to the end of an exact-size message, so AddressSanitizer
// reports any read past the record. Checks: a record has some text (an empty APL none), all of it
// printable ASCII (what the JSON and XML writers rely on), the generic form is exact, and the
// TXT strings put back together are the data.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "dns/dns_record.h"
#include "dns/name_codec.h"
#include "report/record_text.h"
#include "time/clock.h"

namespace {

constexpr std::uint16_t k_type_apl = 42;

void check(bool ok) {
  if (!ok) std::abort();
}

std::string generic_form(const std::vector<std::uint8_t>& data) {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string out = "\\# " + std::to_string(data.size());
  if (!data.empty()) out += ' ';
  for (const std::uint8_t byte : data) {
    out += digits[byte >> 4];
    out += digits[byte & 0x0F];
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3 || size - 3 > 65535 - k_header_size) return 0;
  std::vector<std::uint8_t> message(k_header_size + size - 3, 0);  // exact size: no spare capacity
  std::copy(data + 3, data + size, message.begin() + k_header_size);
  const std::size_t before = std::min<std::size_t>(data[2], size - 3);

  DNS_RES_RECORD record;
  record.type = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
  record.class_ = k_class_in;
  record.rdata_offset = static_cast<std::uint32_t>(k_header_size + before);
  record.rdlength = static_cast<std::uint16_t>(message.size() - record.rdata_offset);
  record.rdata.assign(message.begin() + record.rdata_offset, message.end());
  record.timestamp = timestamp_from_unix(1795500000, 0);
  record.packet = shared_bytes(std::move(message));

  const auto text = record_presentation(record);
  // An APL record of no items is the one with no text: dig writes it as nothing.
  check(text.has_value() && (!text->empty() || (record.type == k_type_apl && record.rdata.empty())));
  for (const char c : *text) check(c >= 0x20 && c <= 0x7E);
  if (text->starts_with("\\# ")) check(*text == generic_form(record.rdata));

  if (const auto strings = record_character_strings(record)) {
    std::vector<std::uint8_t> joined;
    for (const std::string& s : *strings) {
      joined.push_back(static_cast<std::uint8_t>(s.size()));
      joined.insert(joined.end(), s.begin(), s.end());
    }
    check(joined == record.rdata);
  }
  return 0;
}
