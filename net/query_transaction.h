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
#include "report/json_writer.h"
#include "report/run_summary.h"

// What a run shares between its queries beyond the configuration; both optional.
struct run_extras {
  send_pacer* pacer = nullptr;      // -qps
  run_summary* summary = nullptr;   // progress line and -stats
};

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

// The outcome of a name whose last attempt is `transaction`; `answered` as exchange() or
// take_reply() said.
name_outcome classify_attempt(const dns_packet_transaction& transaction, bool answered);

// How long an attempt waits for its reply, in milliseconds; negative: no limit. -timeout_ms
// wins over -timeout.
int attempt_wait_ms(const input_params& config);

// Up to retry+1 attempts; writes every attempt's rows (and the verbose dump), flushed after
// each attempt. A stop signal ends it between attempts, or during the wait, in which case
// that attempt writes nothing and the name counts as never answered.
name_outcome run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                       input_params& config, const run_extras& extras = {}, const query_origin& origin = {});

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

// The rows of one attempt; `context` is read only by the JSON writer. Returns 1.
int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, run_summary* summary = nullptr, const json_row_context& context = {});

// Everything written for one finished attempt (number `attempt`, from 1): its rows, then the
// verbose dump; counted.
void report_attempt(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                    input_params& config, run_summary* summary, const query_origin& origin, std::int32_t attempt);
