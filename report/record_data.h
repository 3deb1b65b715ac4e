// Record data (RDATA) told as text, by type.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "dns/dns_record.h"

// The data column of a report row; `field_sep` separates fields inside the data ("; " in the
// text report, ";" in CSV). Unreadable data falls back to a hex dump. Appended to a row made
// in memory, or written to a stream as one field.
void append_record_data(std::string& out, const DNS_RES_RECORD& record, std::string_view field_sep);
void write_record_data(std::ostream& out, const DNS_RES_RECORD& record, std::string_view field_sep);

// The same decisions into a string, without the hex dump fallback. `out` is cleared first.
bool record_data_string(const DNS_RES_RECORD& record, std::string& out);

// The SOA line; with `with_header` the heading line and two line ends come first. The stream is
// left in hexadecimal with fill "0", as the line's numbers leave it.
void write_soa(const SOA_RDATA& soa, std::ostream& out, std::string_view sep, bool with_header);
void append_soa(std::string& out, const SOA_RDATA& soa, std::string_view sep);

// Each byte as two lower-case hex digits, one space between bytes, none around them. Shared
// with the XML raw_data_hex element.
void append_hex_bytes(std::string& out, std::span<const std::uint8_t> bytes);
void write_hex_bytes(std::ostream& out, std::span<const std::uint8_t> bytes);

// The name stored at `offset` of the record's own message, or nullopt when it cannot be read.
// Message offsets are 16-bit; the truncation is the wire's own arithmetic.
std::optional<std::string> record_name_at(const DNS_RES_RECORD& record, std::uint32_t offset);

// The MX preference: the two bytes at the data offset, big-endian, read from the record's
// message. Bytes past the end of the message read as zero.
std::uint16_t mx_preference(const DNS_RES_RECORD& record);
