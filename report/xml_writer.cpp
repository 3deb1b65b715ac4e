#include "report/xml_writer.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <string>

#include "dns/record_types.h"
#include "dns/response_parser.h"
#include "report/record_data.h"
#include "report/stream_format.h"
#include "time/datetime_format.h"

namespace {

// Values go in exactly as they stand; a reader of these logs gets the bytes the server sent.
void write_element(std::ostream& out, std::string_view tag, std::string_view text) {
  write_field(out, "<");
  write_field(out, tag);
  write_field(out, ">");
  write_field(out, text);
  write_field(out, "</");
  write_field(out, tag);
  write_field(out, ">");
}

void write_element(std::ostream& out, std::string_view tag, std::uint64_t value) {
  write_element(out, tag, std::to_string(value));
}

// Each attribute brings its own leading blank, after the blank of "<translated_data ".
void write_attribute(std::ostream& out, std::string_view name, std::string_view value) {
  write_field(out, " ");
  write_field(out, name);
  write_field(out, "=\"");
  write_field(out, value);
  write_field(out, "\"");
}

// The usual compressed IPv6 form from inet_ntop ("2001:db8::1"). Data that is not exactly
// one address gives an empty value, as does a formatter failure.
std::string ipv6_text(const std::vector<std::uint8_t>& bytes) {
  std::array<std::uint8_t, 16> address{};
  if (bytes.size() != address.size()) return {};
  std::copy(bytes.begin(), bytes.end(), address.begin());
  char text[INET6_ADDRSTRLEN] = {};
  if (inet_ntop(AF_INET6, address.data(), text, sizeof text) == nullptr) return {};
  return text;
}

// An unreadable name still gives its attribute, with an empty value.
std::string name_at(const DNS_RES_RECORD& record, std::uint32_t offset) {
  return record_name_at(record, offset).value_or("");
}

// Returns false when the tag must stay open: an SOA whose data cannot be read leaves
// "<translated_data " without attributes and without its ">".
bool write_translated_attributes(std::ostream& out, const DNS_RES_RECORD& record) {
  switch (record.type) {
    case k_type_a:
      if (record.rdlength == 4 && record.rdata.size() == 4) {
        std::string address;
        record_data_string(record, address);
        write_attribute(out, "ipv4_addr", address);
      }
      return true;
    case k_type_ns:
    case k_type_cname:
    case k_type_ptr:
      write_attribute(out, "domain_name", name_at(record, record.rdata_offset));
      return true;
    case k_type_soa: {
      SOA_RDATA soa;
      if (!decode_soa(record.packet, record.rdata_offset, soa)) return false;
      std::ostringstream serial;
      write_field(serial, "0x");
      write_field(serial, soa.serial, {0, field_align::right, ' ', true});
      write_attribute(out, "domain_name", soa.name_server);
      write_attribute(out, "admin_mailbox", soa.admin_mailbox);
      write_attribute(out, "serial_num", serial.str());
      write_attribute(out, "refresh_sec", std::to_string(soa.refresh));
      write_attribute(out, "retry_sec", std::to_string(soa.retry));
      write_attribute(out, "expire_sec", std::to_string(soa.expire));
      write_attribute(out, "min_sec", std::to_string(soa.minimum));
      return true;
    }
    case k_type_mx: {
      // Three characters wide, so preferences up to 999 line up when the log is read as text.
      std::ostringstream preference;
      write_field(preference, mx_preference(record), right_in(3));
      write_attribute(out, "preference", preference.str());
      write_attribute(out, "mx_server", name_at(record, record.rdata_offset + 2));
      return true;
    }
    case k_type_aaaa:
      write_attribute(out, "ipv6_addr", ipv6_text(record.rdata));
      return true;
    default:
      return true;
  }
}

}  // namespace

void write_xml_entry(const DNS_RES_RECORD& record, std::ostream& out, const input_params& config,
                     std::string_view status) {
  std::string date;
  std::string time;
  format_datetime(to_calendar(record.timestamp), config.datetime_format, date, time);
  std::ostringstream id;
  write_field(id, record.id, {4, field_align::right, '0', true});
  std::ostringstream raw;
  write_hex_bytes(raw, record.rdata);

  write_field(out, "<data_entry>");
  write_element(out, "query", record.name);
  write_element(out, "status", status);
  write_element(out, "packet_id", id.str());
  write_element(out, "dns_server", record.server);
  write_element(out, "query_date_utc", date);
  write_element(out, "query_time_utc", time);
  write_element(out, "dns_type", record.type);
  write_element(out, "dns_type_name", record_type_name(record.type));
  write_element(out, "dns_class", record.class_);
  write_element(out, "ttl_secs", record.ttl);
  write_element(out, "data_length", record.rdlength);
  write_element(out, "raw_data_hex", raw.str());
  write_field(out, "<translated_data ");
  if (write_translated_attributes(out, record)) write_field(out, ">");
  write_field(out, "</translated_data>");
  write_field(out, "</data_entry>");
  out << std::endl;
}
