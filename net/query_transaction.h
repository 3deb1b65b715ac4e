// One attempt on the wire: send the query, take the reply, parse it and say how the name fared.
// These steps know messages, not report formats; the sequential run (driver/query_run) and the
// bulk run (driver/bulk_run) drive them and hand each finished attempt to report/attempt_report.
#pragma once

#include <span>
#include <string>

#include "dns/dns_record.h"
#include "net/socket.h"
#include "params/input_params.h"

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

// The same for a datagram already read: `datagram` (at most 65,536 bytes) becomes the reply.
// An empty datagram counts as none.
bool accept_reply(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const std::string* server,
                  std::span<const std::uint8_t> datagram);
