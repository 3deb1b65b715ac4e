// One query carried out: attempts with retries, each classified into a status word and
// reported.
#pragma once

#include <ostream>
#include <string>

#include "dns/dns_record.h"
#include "params/input_params.h"
#include "report/json_writer.h"

// Status words.
inline constexpr const char* k_status_success = "success";
inline constexpr const char* k_status_sock_err = "sock err";
inline constexpr const char* k_status_timeout = "timeout";
inline constexpr const char* k_status_unkresp = "unkresp";
inline constexpr const char* k_status_invalid = "invalid";

// Where a query's name came from, for the report that says so (JSON).
struct query_origin {
  std::uint64_t line = 1;  // input line number
  std::string_view asked;  // the name as asked
};

// How a name fared, from best to worst; the value is its -strict_exit status. The last
// attempt decides, so a time-out followed by an answer counts as the answer.
enum class name_outcome {
  answered = 0,  // NOERROR with answer records
  empty = 1,     // NXDOMAIN, or NOERROR without answers
  failed = 2,    // another response code, or a reply that cannot be used (unparsable, foreign ID)
  no_reply = 3,  // nothing sent or nothing received; also a name never asked
};

// Up to retry+1 attempts; writes every attempt's rows (and the verbose dump).
name_outcome run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                       input_params& config, const query_origin& origin = {});

// One attempt on the wire. True when a reply arrived, parsed, and carries the query's ID.
bool exchange(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
              std::int32_t timeout_seconds, std::uint16_t port = 53);

// The rows of one attempt; `context` is read only by the JSON writer. Returns 1.
int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, const json_row_context& context = {});
