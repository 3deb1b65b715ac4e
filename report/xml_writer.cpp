#include "report/xml_writer.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "dns/record_types.h"
#include "dns/response_parser.h"
#include "report/record_data.h"
#include "report/record_text.h"
#include "report/stream_format.h"
#include "time/datetime_format.h"

namespace {

// Values go in exactly as they stand; a reader of these logs gets the bytes the server sent.
void open_element(std::string& out, std::string_view tag) {
  out += '<';
  out += tag;
  out += '>';
}

void close_element(std::string& out, std::string_view tag) {
  out += "</";
  out += tag;
  out += '>';
}

void write_element(std::string& out, std::string_view tag, std::string_view text) {
  open_element(out, tag);
  out += text;
  close_element(out, tag);
}

void write_element(std::string& out, std::string_view tag, std::uint64_t value,
                   const field_format& format = k_plain) {
  open_element(out, tag);
  append_field(out, value, format);
  close_element(out, tag);
}

// Each attribute brings its own leading blank, after the blank of "<translated_data ".
void open_attribute(std::string& out, std::string_view name) {
  out += ' ';
  out += name;
  out += "=\"";
}

void write_attribute(std::string& out, std::string_view name, std::string_view value) {
  open_attribute(out, name);
  out += value;
  out += '"';
}

void write_attribute(std::string& out, std::string_view name, std::uint64_t value,
                     const field_format& format = k_plain) {
  open_attribute(out, name);
  append_field(out, value, format);
  out += '"';
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

// The one value the XML report escapes: the standard text form holds quotes and may hold
// "&", "<" or ">", which would otherwise end the attribute or read as markup. It is printable
// ASCII, so nothing else needs escaping.
void write_escaped_attribute(std::string& out, std::string_view name, std::string_view value) {
  open_attribute(out, name);
  for (const char c : value) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out += c; break;
    }
  }
  out += '"';
}

// Returns false when the tag must stay open: an SOA whose data cannot be read leaves
// "<translated_data " without attributes and without its ">".
bool write_translated_attributes(std::string& out, const DNS_RES_RECORD& record) {
  switch (record.type) {
    case k_type_a:
      if (record.rdlength == 4 && record.rdata.size() == 4) {
        open_attribute(out, "ipv4_addr");
        for (std::size_t i = 0; i < 4; ++i) {
          if (i != 0) out += '.';
          append_field(out, record.rdata[i]);
        }
        out += '"';
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
      char serial[24] = "0x";
      const auto end = std::to_chars(serial + 2, serial + sizeof serial, soa.serial, 16).ptr;
      write_attribute(out, "domain_name", soa.name_server);
      write_attribute(out, "admin_mailbox", soa.admin_mailbox);
      write_attribute(out, "serial_num", std::string_view(serial, static_cast<std::size_t>(end - serial)));
      write_attribute(out, "refresh_sec", soa.refresh);
      write_attribute(out, "retry_sec", soa.retry);
      write_attribute(out, "expire_sec", soa.expire);
      write_attribute(out, "min_sec", soa.minimum);
      return true;
    }
    case k_type_mx: {
      // Three characters wide, so preferences up to 999 line up when the log is read as text.
      write_attribute(out, "preference", mx_preference(record), right_in(3));
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
                     std::string_view status, const row_context* why) {
  const datetime_texts& when = timestamp_texts(record.timestamp, config.datetime_format);
  const std::string& date = when.date;
  const std::string& time = when.time;

  report_row& row = shared_report_row();
  row.clear();
  std::string& entry = row.text();
  entry += "<data_entry>";
  write_element(entry, "query", record.name);
  write_element(entry, "status", status);
  write_element(entry, "packet_id", record.id, {4, field_align::right, '0', true});
  write_element(entry, "dns_server", record.server);
  write_element(entry, "query_date_utc", date);
  write_element(entry, "query_time_utc", time);
  write_element(entry, "dns_type", record.type);
  write_element(entry, "dns_type_name", record_type_name(record.type));
  write_element(entry, "dns_class", record.class_);
  write_element(entry, "ttl_secs", record.ttl);
  write_element(entry, "data_length", record.rdlength);
  open_element(entry, "raw_data_hex");
  append_hex_bytes(entry, record.rdata);
  close_element(entry, "raw_data_hex");
  entry += "<translated_data ";
  const bool complete = write_translated_attributes(entry, record);
  // -presentation adds the standard text form after the other attributes, to every record
  // (questions have no data). It also closes the tag that an unreadable SOA leaves open: the
  // attribute then carries that SOA's data in the generic form.
  const auto presentation = config.presentation != 0 ? record_presentation(record) : std::nullopt;
  if (presentation) write_escaped_attribute(entry, "presentation", *presentation);
  if (complete || presentation) entry += '>';
  entry += "</translated_data>";
  if (why != nullptr) {
    const why_values values = why_of(*why);
    write_element(entry, "line", values.line);
    write_element(entry, "asked", values.asked);
    write_element(entry, "rcode", values.rcode);
    write_element(entry, "outcome", values.outcome);
  }
  entry += "</data_entry>\n";
  row.write_to(out);
}
