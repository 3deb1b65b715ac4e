// -json_names: one JSON object per name, written when the name is done, saying how it ended
// and what its last attempt got back. Members in a fixed order, every line ASCII; the members
// are made by json_writer's helpers, so every value is written as in -json.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

#include "dns/dns_record.h"
#include "params/input_params.h"

// What the object tells about a name.
struct name_result {
  std::uint64_t line = 1;   // input line number
  std::string_view asked;   // the name as given
  // The name's last attempt: its query as sent and its exchange. Both null for a name that
  // could not be built into a query.
  const DNS_RES_RECORD* query = nullptr;
  const dns_packet_transaction* transaction = nullptr;
  std::uint64_t attempts = 0;
  std::string_view outcome;  // "answered", "empty", "failed", "no reply" or "bad name"
  std::string_view reason;   // why a bad name could not be built, or an iterative resolution failed
  std::string_view more;     // members that follow, rendered: an iterative resolution's queries and trace
  std::uint16_t type = 0;    // the type asked, for a name without a query; 0: the run's one type
};

// One line: line, asked, query (the name as the question holds it, null when it cannot be read
// back), type, type_name, server, port, time (the last attempt's sending), attempts, outcome,
// reason (bad names only), status, rcode, rtt_ms, and the answer, authority and additional
// records as arrays of {name, type, type_name, ttl, rdata}, TXT and SPF records with txt too.
void write_json_name(std::ostream& out, const name_result& name, const input_params& config);
