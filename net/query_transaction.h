// One query carried out: attempts with retries, each classified into a status word and
// reported. The steps of an attempt (send, take the reply, report) are shared by the
// sequential run, which waits for each reply in turn, and the bulk run, which waits for many.
#pragma once

#include <ostream>
#include <string>

#include "dns/dns_record.h"
#include "net/send_pacer.h"
#include "net/socket.h"
#include "params/input_params.h"
#include "report/run_summary.h"

// What a run shares between its queries beyond the configuration; both optional.
struct run_extras {
  send_pacer* pacer = nullptr;      // -qps
  run_summary* summary = nullptr;   // progress line and -stats
};

// How long an attempt waits for its reply, in milliseconds; negative: no limit. -timeout_ms
// wins over -timeout.
int attempt_wait_ms(const input_params& config);

// Up to retry+1 attempts; writes every attempt's rows (and the verbose dump), flushed after
// each attempt. Returns 1. A stop signal ends it between attempts, or during the wait, in
// which case that attempt writes nothing.
int run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
              input_params& config, const run_extras& extras = {});

// One attempt on the wire. True when a reply arrived, parsed, and carries the query's ID.
bool exchange(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
              int wait_ms, std::uint16_t port = 53);

// The first step of an attempt: clears the transaction, stamps the query with the time of
// sending and the server, opens a fresh socket and sends. The socket comes back open only
// when the query went out.
qv::socket send_query(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const std::string* server,
                      std::uint16_t port);

// The last step: the datagram waiting on `link` taken as the reply. True when it parsed and
// carries the query's ID; a foreign ID's records stay in the transaction to be reported.
bool take_reply(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const std::string* server,
                qv::socket& link);

// The rows of one attempt. Returns 1.
int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, run_summary* summary = nullptr);

// Everything written for one finished attempt: its rows, then the verbose dump; counted.
void report_attempt(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                    input_params& config, run_summary* summary);
