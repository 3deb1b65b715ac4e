#include "report/record_data.h"

#include "dns/byte_reader.h"
#include "dns/response_parser.h"
#include "report/stream_format.h"

namespace {

constexpr std::uint8_t k_carriage_return = 13;
constexpr std::uint8_t k_line_feed = 10;

void append_dotted_quad(std::string& out, std::span<const std::uint8_t> bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0) out += '.';
    append_field(out, bytes[i]);
  }
}

// Groups of 16 bits without leading zeros and without shortening zero runs, so every group
// stays visible in the column; an odd last byte has no partner and is dropped.
void append_ipv6_groups(std::string& out, std::span<const std::uint8_t> bytes) {
  const field_format group{0, field_align::right, ' ', true};
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    if (i != 0) out += ':';
    append_field(out, static_cast<std::uint64_t>(bytes[i]) << 8 | bytes[i + 1], group);
  }
}

// TXT data goes out as it stands, length octets included; only CR and LF become blanks so
// that one record stays on one report line.
void append_txt(std::string& out, std::span<const std::uint8_t> bytes) {
  for (const std::uint8_t byte : bytes)
    out += byte == k_carriage_return || byte == k_line_feed ? ' ' : static_cast<char>(byte);
}

void append_mx(std::string& out, const DNS_RES_RECORD& record, std::string_view field_sep) {
  append_field(out, mx_preference(record));
  out += field_sep;
  // The preference is already out; a bad name only changes what follows it.
  if (const auto name = record_name_at(record, record.rdata_offset + 2)) {
    out += *name;
  } else {
    append_hex_bytes(out, record.rdata);
  }
}

void append_soa_data(std::string& out, const DNS_RES_RECORD& record, std::string_view field_sep) {
  SOA_RDATA soa;
  if (decode_soa(record.packet, record.rdata_offset, soa)) {
    append_soa(out, soa, field_sep);
  } else {
    append_hex_bytes(out, record.rdata);
  }
}

}  // namespace

void append_hex_bytes(std::string& out, std::span<const std::uint8_t> bytes) {
  constexpr char k_digits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0) out += ' ';
    out += k_digits[bytes[i] >> 4];
    out += k_digits[bytes[i] & 0x0F];
  }
}

void write_hex_bytes(std::ostream& out, std::span<const std::uint8_t> bytes) {
  std::string text;
  append_hex_bytes(text, bytes);
  write_field(out, text);
}

std::optional<std::string> record_name_at(const DNS_RES_RECORD& record, std::uint32_t offset) {
  std::string name;
  if (decode_name(record.packet, static_cast<std::uint16_t>(offset), name) == 0) return std::nullopt;
  return name;
}

std::uint16_t mx_preference(const DNS_RES_RECORD& record) {
  // Read from the message, like the name after it; a record too short for the field reads
  // zeros past the end of the message instead of leaving it.
  byte_reader reader(record.packet);
  reader.seek(record.rdata_offset);
  return reader.u16();
}

void append_record_data(std::string& out, const DNS_RES_RECORD& record, std::string_view field_sep) {
  const std::span<const std::uint8_t> data = record.rdata;
  if (record.rdlength == 0) {
    out += "  <none>";
    return;
  }
  switch (record.type) {
    case k_type_a:
      if (record.rdlength == 4 && data.size() == 4) {
        append_dotted_quad(out, data);
        return;
      }
      break;
    case k_type_ns:
    case k_type_cname:
    case k_type_ptr:
      if (const auto name = record_name_at(record, record.rdata_offset)) {
        out += *name;
        return;
      }
      break;
    case k_type_soa:
      append_soa_data(out, record, field_sep);
      return;
    case k_type_mx:
      append_mx(out, record, field_sep);
      return;
    case k_type_txt:
      append_txt(out, data);
      return;
    case k_type_aaaa:
      append_ipv6_groups(out, data);
      return;
    default:
      break;
  }
  append_hex_bytes(out, data);
}

void write_record_data(std::ostream& out, const DNS_RES_RECORD& record, std::string_view field_sep) {
  std::string text;
  append_record_data(text, record, field_sep);
  write_field(out, text);
}

bool record_data_string(const DNS_RES_RECORD& record, std::string& out) {
  out.clear();
  if (record.rdlength == 0) return false;
  switch (record.type) {
    case k_type_a:
      if (record.rdlength == 4 && record.rdata.size() == 4) append_dotted_quad(out, record.rdata);
      return true;
    case k_type_ns:
    case k_type_cname:
    case k_type_ptr:
      out = record_name_at(record, record.rdata_offset).value_or("");
      return true;
    case k_type_mx:
      out = record_name_at(record, record.rdata_offset + 2).value_or("");
      return true;
    case k_type_txt:
      out.assign(record.rdata.begin(), record.rdata.end());
      return true;
    case k_type_aaaa:
      append_ipv6_groups(out, record.rdata);
      return true;
    case k_type_soa:
      return false;
    default:
      return true;
  }
}

void append_soa(std::string& out, const SOA_RDATA& soa, std::string_view sep) {
  out += soa.name_server;
  out += sep;
  out += soa.admin_mailbox;
  // Eight digits each, so the five numbers line up from row to row.
  const field_format number{8, field_align::right, '0', true};
  for (const std::uint32_t value : {soa.serial, soa.refresh, soa.retry, soa.expire, soa.minimum}) {
    out += sep;
    out += "0x";
    append_field(out, value, number);
  }
}

void write_soa(const SOA_RDATA& soa, std::ostream& out, std::string_view sep, bool with_header) {
  if (with_header) {
    for (std::string_view heading : {"   name server ", "   admin mailbox ", "serial#", "refresh",
                                     "retry", "expire"}) {
      write_field(out, heading);
      write_field(out, sep);
    }
    write_field(out, "minimum");
    write_field(out, "\n\n");
  }
  std::string line;
  append_soa(line, soa, sep);
  write_field(out, line);
  // The stream is left as the line's numbers left it: hexadecimal, fill "0".
  apply_format(out, {0, field_align::right, '0', true});
}
