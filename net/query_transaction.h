// One query carried out: attempts with retries, each classified into a status word and
// reported.
#pragma once

#include <ostream>
#include <string>

#include "dns/dns_record.h"
#include "params/input_params.h"

// Status words.
inline constexpr const char* k_status_success = "success";
inline constexpr const char* k_status_sock_err = "sock err";
inline constexpr const char* k_status_timeout = "timeout";
inline constexpr const char* k_status_unkresp = "unkresp";
inline constexpr const char* k_status_invalid = "invalid";

// Up to retry+1 attempts; writes every attempt's rows (and the verbose dump). Returns 1.
int run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
              input_params& config);

// One attempt on the wire. True when a reply arrived, parsed, and carries the query's ID.
bool exchange(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
              std::int32_t timeout_seconds, std::uint16_t port = 53);

// The rows of one attempt. Returns 1.
int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config);
