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

// Every object is made in a row of its own that starts with its "{", so a member follows
// another exactly when the row holds more than that brace.
void key(std::string& out, std::string_view name) {
  if (out.size() > 1) out += ',';
  out += '"';
  out += name;
  out += "\":";
}

void string_field(std::string& out, std::string_view name, std::string_view value) {
  key(out, name);
  append_json_string(out, value);
}

void null_field(std::string& out, std::string_view name) {
  key(out, name);
  out += "null";
}

void number_field(std::string& out, std::string_view name, std::uint64_t value) {
  key(out, name);
  append_field(out, value);
}

// RFC 3339 in UTC with milliseconds, e.g. 2026-11-23T04:55:53.536Z.
void time_field(std::string& out, std::uint64_t timestamp) {
  const calendar_fields at = to_calendar(timestamp);
  key(out, "time");
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

// Hex bytes as the XML report writes them ("c0 00 02 0a"), through the scratch row.
void hex_field(std::string& out, std::string_view name, std::span<const std::uint8_t> bytes,
               report_row& scratch) {
  scratch.clear();
  append_hex_bytes(scratch.text(), bytes);
  string_field(out, name, scratch.text());
}

void data_field(std::string& out, const DNS_RES_RECORD& record, report_row& scratch) {
  scratch.clear();
  append_record_data(scratch.text(), record, "; ");  // the text report's data column
  string_field(out, "data", scratch.text());
}

// The standard text form, and for TXT and SPF the strings one by one; null where there is no
// record data to tell (question rows) or no strings.
void presentation_fields(std::string& out, const DNS_RES_RECORD& record, std::string_view section) {
  const bool question = section == k_section_question;
  const auto text = question ? std::nullopt : record_presentation(record);
  key(out, "rdata");
  if (text)
    append_json_text(out, *text);
  else
    out += "null";
  const auto strings = question ? std::nullopt : record_character_strings(record);
  key(out, "txt");
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

void bool_field(std::string& out, std::string_view name, bool value) {
  key(out, name);
  out += value ? "true" : "false";
}

// With the OPT record's upper bits, so BADVERS (16) reads as such.
void rcode_field(std::string& out, const message_header& header, const std::optional<opt_record>& opt) {
  key(out, "rcode");
  const std::uint16_t rcode = full_rcode(header.rcode, opt);
  const std::string_view name = rcode_name(rcode);
  if (name.empty())
    append_field(out, rcode);
  else
    append_json_string(out, name);
}

// {"version":0,"udp_size":1232,"do":false,"options":[{"code":10,"hex":"01 02"}]}. Each object
// is made on its own, so that its first member, too, follows a lone "{".
void edns_field(std::string& out, const opt_record& opt, report_row& scratch) {
  std::string edns = "{";
  number_field(edns, "version", opt.version);
  number_field(edns, "udp_size", opt.udp_size);
  bool_field(edns, "do", opt.dnssec_ok);
  key(edns, "options");
  edns += '[';
  for (const edns_option& option : opt.options) {
    if (edns.back() != '[') edns += ',';
    std::string item = "{";
    number_field(item, "code", option.code);
    hex_field(item, "hex", option.data, scratch);
    edns += item;
    edns += '}';
  }
  edns += "]}";
  key(out, "edns");
  out += edns;
}

void flags_field(std::string& out, const message_header* header) {
  key(out, "flags");
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

// Milliseconds with the clock's microseconds. gettimeofday may step back between send and
// receipt; such a round trip shows as 0 rather than as a huge unsigned number.
void rtt_field(std::string& out, std::uint64_t sent_at, std::uint64_t received_at) {
  key(out, "rtt_ms");
  const std::uint64_t ticks = received_at > sent_at ? received_at - sent_at : 0;
  append_field(out, ticks / k_ticks_per_millisecond);
  out += '.';
  append_field(out, ticks % k_ticks_per_millisecond / 10, {3, field_align::right, '0', false});
}

// A whole message of the attempt in hex, or null when there was none.
void message_field(std::string& out, std::string_view name, std::uint32_t length,
                   std::span<const std::uint8_t> bytes, report_row& scratch) {
  if (length != 0)
    hex_field(out, name, bytes, scratch);
  else
    null_field(out, name);
}

void attempt_fields(std::string& out, const json_row_context& context, const input_params& config,
                    report_row& scratch) {
  const dns_packet_transaction* t = context.transaction;
  const bool received = t != nullptr && t->received_length != 0;
  const auto header = received ? read_message_header(t->received) : std::nullopt;
  const auto opt = header ? find_opt_record(t->additional) : std::nullopt;
  number_field(out, "attempt", static_cast<std::uint64_t>(context.attempt));
  if (header)
    rcode_field(out, *header, opt);
  else
    null_field(out, "rcode");  // no reply, or one too short to hold a header
  flags_field(out, header ? &*header : nullptr);
  if (opt) edns_field(out, *opt, scratch);
  if (received)
    rtt_field(out, context.sent_at, t->received_at);
  else
    null_field(out, "rtt_ms");
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
                    std::string_view status, const json_row_context& context, const input_params& config) {
  report_row& row = shared_report_row();
  report_row& scratch = scratch_row();
  row.clear();
  std::string& line = row.text();
  line += '{';
  number_field(line, "line", context.line);
  string_field(line, "asked", context.asked);
  string_field(line, "query", record.name);
  string_field(line, "section", section);
  string_field(line, "status", status);
  number_field(line, "id", record.id);
  string_field(line, "server", record.server);
  number_field(line, "port", config.port);
  const bool tcp = context.transaction != nullptr && context.transaction->transport == exchange_transport::tcp;
  string_field(line, "transport", tcp ? "tcp" : "udp");
  time_field(line, record.timestamp);
  number_field(line, "type", record.type);
  string_field(line, "type_name", usual_type_name(record.type));
  number_field(line, "class", record.class_);
  number_field(line, "ttl", record.ttl);
  number_field(line, "size", record.rdlength);
  data_field(line, record, scratch);
  hex_field(line, "rdata_hex", record.rdata, scratch);
  presentation_fields(line, record, section);
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
  number_field(text, "line", line);
  string_field(text, "asked", asked);
  string_field(text, "status", "bad name");
  string_field(text, "reason", reason);
  text += "}\n";
  row.write_to(out);
}
