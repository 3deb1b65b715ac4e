// JSON Lines (-json): one object per report row, keys in a fixed order, nothing but ASCII, so
// every line stands alone and the output of several runs concatenates.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "dns/dns_record.h"
#include "dns/edns.h"
#include "dns/message_header.h"
#include "params/input_params.h"
#include "report/row_context.h"

// One row: the record's fields, the section and status words, the attempt's transport, then
// its rcode, flags, EDNS and round trip, and with -verbose the sent and received messages in hex.
void write_json_row(const DNS_RES_RECORD& record, std::ostream& out, std::string_view section,
                    std::string_view status, const row_context& context, const input_params& config);

// The one result of a piped line that cannot be made into a query.
void write_json_bad_name(std::ostream& out, std::uint64_t line, std::string_view asked,
                         std::string_view reason);

// `bytes` as a JSON string, quotes included. Printable ASCII stands as it is, with '"' as \"
// and '\' doubled in the value (so \\\\ in the JSON text); every other byte is the DNS
// presentation form \DDD (three decimal digits), so the value reads back to the bytes without
// doubt and the line is ASCII whatever the bytes were.
void append_json_string(std::string& out, std::string_view bytes);

// Text that is already in a presentation form (record data as dig prints it: printable ASCII
// with its own backslash escapes) as a JSON string: only JSON's escapes of '"' and '\', so the
// value reads back as that very text. A byte outside printable ASCII, which such text never
// holds, is written \u00XX to keep the line valid.
void append_json_text(std::string& out, std::string_view text);

// Members of an object being made in `out`, which holds the object from its "{" on (and may hold
// more before it): each appends "name":value, after a comma unless it is the object's first.
// Every JSON writer makes its members through these, so each kind of value is written one way.
void json_key(std::string& out, std::string_view name);
void json_string_member(std::string& out, std::string_view name, std::string_view value);
void json_null_member(std::string& out, std::string_view name);
void json_number_member(std::string& out, std::string_view name, std::uint64_t value);
// "time": RFC 3339 in UTC with milliseconds, e.g. "2026-11-23T04:55:53.536Z".
void json_time_member(std::string& out, std::uint64_t timestamp);
// "rdata": the standard text form; null for a question, which has no data.
void json_rdata_member(std::string& out, const DNS_RES_RECORD& record, bool question);
// "txt": the strings of a TXT or SPF record; null for a question, any other type, and data that
// is not a sequence of strings.
void json_txt_member(std::string& out, const DNS_RES_RECORD& record, bool question);
// "rcode": the response code's name, a number for a code without one; null without a header.
// With the reply's OPT record the code has its upper bits (BADVERS).
void json_rcode_member(std::string& out, const message_header* header,
                       const std::optional<opt_record>& opt = std::nullopt);
// "transport": "tcp" or "udp" (also when there was no attempt).
void json_transport_member(std::string& out, const dns_packet_transaction* transaction);
// "rtt_ms": from `sent_at` to the receipt of the transaction's reply; null without a reply.
void json_rtt_member(std::string& out, std::uint64_t sent_at, const dns_packet_transaction* transaction);
