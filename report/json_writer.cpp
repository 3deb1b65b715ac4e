#include "report/json_writer.h"

#include <span>
#include <utility>

#include "dns/edns.h"
#include "dns/message_header.h"
#include "dns/record_types.h"
#include "report/record_data.h"
#include "report/record_text.h"
#include "report/stream_format.h"
#include "time/clock.h"
#include "time/datetime_format.h"

namespace {

constexpr std::uint8_t k_first_printable = 0x20;
constexpr std::uint8_t k_last_printable = 0x7E;
constexpr std::uint64_t k_ticks_per_millisecond = k_ticks_per_second / 1000;

const field_format k_two_digits{2, field_align::right, '0', false};

}  // namespace

// A member follows another unless it is the first of its object, right after the "{".
void json_key(std::string& out, std::string_view name) {
  if (!out.empty() && out.back() != '{') out += ',';
  out += '"';
  out += name;
  out += "\":";
}

void json_string_member(std::string& out, std::string_view name, std::string_view value) {
  json_key(out, name);
  append_json_string(out, value);
}

void json_null_member(std::string& out, std::string_view name) {
  json_key(out, name);
  out += "null";
}

void json_number_member(std::string& out, std::string_view name, std::uint64_t value) {
  json_key(out, name);
  append_field(out, value);
}

void json_time_member(std::string& out, std::uint64_t timestamp) {
  const calendar_fields at = to_calendar(timestamp);
  json_key(out, "time");
  out += '"';
  append_field(out, static_cast<std::uint64_t>(at.year), {4, field_align::right, '0', false});
  for (const auto& [mark, value] : {std::pair{'-', at.month}, {'-', at.day}, {'T', at.hour},
                                    {':', at.minute}, {':', at.second}}) {
    out += mark;
    append_field(out, static_cast<std::uint64_t>(value), k_two_digits);
  }
  out += '.';
  append_field(out, static_cast<std::uint64_t>(at.millisecond), {3, field_align::right, '0', false});
  out += "Z\"";
}

void json_rdata_member(std::string& out, const DNS_RES_RECORD& record, bool question) {
  const auto text = question ? std::nullopt : record_presentation(record);
  json_key(out, "rdata");
  if (text)
    append_json_text(out, *text);
  else
    out += "null";
}

void json_txt_member(std::string& out, const DNS_RES_RECORD& record, bool question) {
  const auto strings = question ? std::nullopt : record_character_strings(record);
  json_key(out, "txt");
  if (!strings) {
    out += "null";
    return;
  }
  out += '[';
  for (std::size_t i = 0; i < strings->size(); ++i) {
    if (i != 0) out += ',';
    append_json_string(out, (*strings)[i]);
  }
  out += ']';
}

// With the OPT record's upper bits, so BADVERS (16) reads as such.
void json_rcode_member(std::string& out, const message_header* header, const std::optional<opt_record>& opt) {
  json_key(out, "rcode");
  if (header == nullptr) {
    out += "null";
    return;
  }
  const std::uint16_t rcode = full_rcode(header->rcode, opt);
  const std::string_view name = rcode_name(rcode);
  if (name.empty())
    append_field(out, rcode);
  else
    append_json_string(out, name);
}

void json_transport_member(std::string& out, const dns_packet_transaction* transaction) {
  const bool tcp = transaction != nullptr && transaction->transport == exchange_transport::tcp;
  json_string_member(out, "transport", tcp ? "tcp" : "udp");
}

// Milliseconds with the clock's microseconds. gettimeofday may step back between send and
// receipt; such a round trip shows as 0 rather than as a huge unsigned number.
void json_rtt_member(std::string& out, std::uint64_t sent_at, const dns_packet_transaction* transaction) {
  json_key(out, "rtt_ms");
  if (transaction == nullptr || transaction->received_length == 0) {
    out += "null";
    return;
  }
  const std::uint64_t received_at = transaction->received_at;
  const std::uint64_t ticks = received_at > sent_at ? received_at - sent_at : 0;
  append_field(out, ticks / k_ticks_per_millisecond);
  out += '.';
  append_field(out, ticks % k_ticks_per_millisecond / 10, {3, field_align::right, '0', false});
}

namespace {

// Hex bytes as the XML report writes them ("c0 00 02 0a"), through the scratch row.
void hex_field(std::string& out, std::string_view name, std::span<const std::uint8_t> bytes,
               report_row& scratch) {
  scratch.clear();
  append_hex_bytes(scratch.text(), bytes);
  json_string_member(out, name, scratch.text());
}

void data_field(std::string& out, const DNS_RES_RECORD& record, report_row& scratch) {
  scratch.clear();
  append_record_data(scratch.text(), record, "; ");  // the text report's data column
  json_string_member(out, "data", scratch.text());
}

void bool_field(std::string& out, std::string_view name, bool value) {
  json_key(out, name);
  out += value ? "true" : "false";
}

// {"version":0,"udp_size":1232,"do":false,"options":[{"code":10,"hex":"01 02"}]}. Each object
// is made on its own, so that its first member, too, follows a lone "{".
void edns_field(std::string& out, const opt_record& opt, report_row& scratch) {
  std::string edns = "{";
  json_number_member(edns, "version", opt.version);
  json_number_member(edns, "udp_size", opt.udp_size);
  bool_field(edns, "do", opt.dnssec_ok);
  json_key(edns, "options");
  edns += '[';
  for (const edns_option& option : opt.options) {
    if (edns.back() != '[') edns += ',';
    std::string item = "{";
    json_number_member(item, "code", option.code);
    hex_field(item, "hex", option.data, scratch);
    edns += item;
    edns += '}';
  }
  edns += "]}";
  json_key(out, "edns");
  out += edns;
}

void flags_field(std::string& out, const message_header* header) {
  json_key(out, "flags");
  out += '[';
  if (header != nullptr) {
    bool first = true;
    for (const auto& [set, name] : {std::pair{header->aa, "aa"}, {header->tc, "tc"}, {header->rd, "rd"},
                                    {header->ra, "ra"}, {header->ad, "ad"}, {header->cd, "cd"}}) {
      if (!set) continue;
      if (!first) out += ',';
      first = false;
      out += '"';
      out += name;
      out += '"';
    }
  }
  out += ']';
}

// A whole message of the attempt in hex, or null when there was none.
void message_field(std::string& out, std::string_view name, std::uint32_t length,
                   std::span<const std::uint8_t> bytes, report_row& scratch) {
  if (length != 0)
    hex_field(out, name, bytes, scratch);
  else
    json_null_member(out, name);
}

void attempt_fields(std::string& out, const row_context& context, const input_params& config,
                    report_row& scratch) {
  const dns_packet_transaction* t = context.transaction;
  const auto header = t != nullptr && t->received_length != 0 ? read_message_header(t->received) : std::nullopt;
  const auto opt = header ? find_opt_record(t->additional) : std::nullopt;
  json_number_member(out, "attempt", static_cast<std::uint64_t>(context.attempt));
  json_rcode_member(out, header ? &*header : nullptr, opt);  // null: no reply, or one too short to hold a header
  flags_field(out, header ? &*header : nullptr);
  if (opt) edns_field(out, *opt, scratch);
  json_rtt_member(out, context.sent_at, t);
  if (!config.verbose) return;
  static const dns_packet_transaction nothing;
  const dns_packet_transaction& attempt = t != nullptr ? *t : nothing;
  message_field(out, "sent_hex", attempt.sent_length, attempt.sent, scratch);
  message_field(out, "received_hex", attempt.received_length, attempt.received, scratch);
}

// The data text and the hex strings are made here before they are escaped into the row.
report_row& scratch_row() {
  static report_row row;
  return row;
}

}  // namespace

void append_json_string(std::string& out, std::string_view bytes) {
  out += '"';
  for (const char c : bytes) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (c == '\\') {
      out += "\\\\\\\\";
    } else if (c == '"') {
      out += "\\\"";
    } else if (byte >= k_first_printable && byte <= k_last_printable) {
      out += c;
    } else {
      out += "\\\\";
      append_field(out, byte, {3, field_align::right, '0', false});
    }
  }
  out += '"';
}

void append_json_text(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (c == '\\' || c == '"') {
      out += '\\';
      out += c;
    } else if (byte >= k_first_printable && byte <= k_last_printable) {
      out += c;
    } else {
      out += "\\u00";
      append_field(out, byte, {2, field_align::right, '0', true});
    }
  }
  out += '"';
}

void write_json_row(const DNS_RES_RECORD& record, std::ostream& out, std::string_view section,
                    std::string_view status, const row_context& context, const input_params& config) {
  report_row& row = shared_report_row();
  report_row& scratch = scratch_row();
  row.clear();
  std::string& line = row.text();
  line += '{';
  json_number_member(line, "line", context.line);
  json_string_member(line, "asked", context.asked);
  json_string_member(line, "query", record.name);
  json_string_member(line, "section", section);
  json_string_member(line, "status", status);
  json_number_member(line, "id", record.id);
  json_string_member(line, "server", record.server);
  // The attempt's own server: a run with -resolvers asks many.
  json_number_member(line, "port", context.transaction != nullptr ? context.transaction->server_port : config.port);
  json_transport_member(line, context.transaction);
  json_time_member(line, record.timestamp);
  json_number_member(line, "type", record.type);
  json_string_member(line, "type_name", usual_type_name(record.type));
  json_number_member(line, "class", record.class_);
  json_number_member(line, "ttl", record.ttl);
  json_number_member(line, "size", record.rdlength);
  data_field(line, record, scratch);
  hex_field(line, "rdata_hex", record.rdata, scratch);
  const bool question = section == k_section_question;
  json_rdata_member(line, record, question);
  json_txt_member(line, record, question);
  attempt_fields(line, context, config, scratch);
  line += "}\n";
  row.write_to(out);
}

void write_json_bad_name(std::ostream& out, std::uint64_t line, std::string_view asked,
                         std::string_view reason) {
  report_row& row = shared_report_row();
  row.clear();
  std::string& text = row.text();
  text += '{';
  json_number_member(text, "line", line);
  json_string_member(text, "asked", asked);
  json_string_member(text, "status", "bad name");
  json_string_member(text, "reason", reason);
  text += "}\n";
  row.write_to(out);
}
