// What a row says beyond its record: where the name came from, which attempt of it the row
// reports, and how the name ended. The JSON writer reads all of it; the text, CSV and XML
// writers read it under -why_columns. Lives only for the call that writes an attempt's rows.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dns/dns_record.h"

struct row_context {
  std::uint64_t line = 1;     // input line number, 1 for a single name
  std::string_view asked;     // the name as asked, before any encoding
  std::int32_t attempt = 1;   // from 1
  std::uint64_t sent_at = 0;  // the query's time of sending, for the round trip
  const dns_packet_transaction* transaction = nullptr;  // the attempt's bytes; null: none
  std::string_view outcome;   // the name's outcome word, judged by its last attempt
};

// The response code of the attempt's reply by name ("NOERROR", "BADVERS" with the OPT record's
// upper bits), in decimal for a code without a name; empty without a reply or a whole header.
std::string reply_rcode_text(const dns_packet_transaction* transaction);

// The four -why_columns values, in column order: line, asked, rcode, outcome.
struct why_values {
  std::string line;
  std::string_view asked;
  std::string rcode;
  std::string_view outcome;
};
why_values why_of(const row_context& context);
