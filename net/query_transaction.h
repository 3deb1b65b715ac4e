// One attempt on the wire: send the query, take the reply, parse it and say how the name fared.
// These steps know messages, not report formats; the sequential run (driver/query_run) and the
// bulk run (driver/bulk_run) drive them and hand each finished attempt to report/attempt_report.
// An attempt goes over UDP, or over TCP (-tcp after a truncated reply, -tcp_only), to one
// server_address.
#pragma once

#include <span>
#include <string>

#include "dns/dns_record.h"
#include "net/server_address.h"
#include "net/socket.h"
#include "net/tcp_exchange.h"
#include "params/input_params.h"

// How a name fared, from best to worst; the value is its -strict_exit status. The last
// attempt decides, so a time-out followed by an answer counts as the answer.
enum class name_outcome {
  answered = 0,  // NOERROR with answer records
  empty = 1,     // NXDOMAIN, or NOERROR without answers
  failed = 2,    // another response code, or a reply that cannot be used (unparsable, foreign ID,
                 // truncated)
  no_reply = 3,  // nothing sent or nothing received; also a name never asked
};

// The outcome of a name whose last attempt is `transaction`; `answered` as exchange() or
// take_reply() said.
name_outcome classify_attempt(const dns_packet_transaction& transaction, bool answered);

// How long an attempt waits for its reply, in milliseconds; negative: no limit. -timeout_ms
// wins over -timeout.
int attempt_wait_ms(const input_params& config);

// An attempt begins: the query is stamped with the time of sending and the server's address
// text, and the transaction with the server's port and the monotonic time its round trip counts
// from.
void stamp_sending(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to);

// One attempt over UDP. True when a reply arrived, parsed, and carries the query's ID.
bool exchange(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to, int wait_ms);

// The first step of an attempt over UDP: clears the transaction, stamps the query with the
// time of sending and the server, opens a fresh socket and sends. The socket comes back open
// only when the query went out.
qv::socket send_query(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to);
// The same to the IPv4 server of `server` (absent: nothing is sent) at `port`.
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

// True when the attempt's reply carries the query's ID and has TC set, parsed or not: with
// -tcp the name is asked again over TCP at once.
bool truncated_reply(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query);

// An attempt over TCP in two steps, for a run that waits in a loop of its own. The first
// clears the transaction, marks it TCP, stamps the query (time of sending, server) and starts
// the exchange: wait on its descriptor for its want() and step() it, until it is done or the
// attempt's wait is over.
tcp_exchange start_tcp_query(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to);
// The second, once the exchange is done or the wait is over (an exchange not done has run out
// of time): what it got goes into the transaction, the reply parsed. True as for take_reply.
// The caller closes the exchange afterwards.
bool finish_tcp_query(dns_packet_transaction& transaction, const DNS_RES_RECORD& query, const server_address& to,
                      const tcp_exchange& exchange);
// Both, with poll() in between: the wait of `wait_ms` (negative: no limit) covers connecting,
// writing and the whole reply. A stop signal ends it as a time-out.
bool exchange_over_tcp(dns_packet_transaction& transaction, DNS_RES_RECORD& query, const server_address& to,
                       int wait_ms);
