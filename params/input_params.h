// The run configuration: the generic report settings plus the tool's own options.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <vector>

#include "params/cmd_params.h"
#include "params/resolver_list.h"

class input_params : public cmd_params {
 public:
  input_params();
  ~input_params() override = default;

  // The tool layer: runs the generic layer first, then the lookup options, -server, and the
  // numbers. Returns 1 on success, 0 on failure (its message already on standard error).
  // `help` is set when the generic layer asked for the usage text; after -version it returns 1
  // with `show_version` set and nothing else read.
  int parse(arg_list& args, std::ostream& header, bool& help);

  std::uint8_t show_version = 0;  // -version: the version line, and nothing else
  std::string server = "8.8.8.8";
  std::string url;
  std::string ip;
  std::string mx;
  std::string txt;
  std::string ns;           // shared by -ns and -cname
  std::string ip6;          // -ip6
  std::string query_name;
  std::int32_t timeout = 1;
  std::int32_t retry = 0;
  std::int32_t delay = 0;
  std::int32_t query_type = 1;              // the lookup option's own type
  std::optional<std::uint16_t> asked_type;  // -qtype: asked instead of query_type
  std::uint8_t strict_exit = 0;             // -strict_exit: the exit status sums up the names
  std::uint16_t port = 53;  // the server's UDP port (-port)
  std::int32_t timeout_ms = -1;  // each attempt's wait in milliseconds (-timeout_ms); -1: -timeout
  std::int32_t qps = 0;          // at most this many queries sent per second (-qps); 0: no limit
  std::int32_t inflight = 1;     // names in flight at once (-inflight); 1: one after another
  std::uint8_t progress = 0;     // -progress: the status line even when stderr is no terminal
  std::uint8_t quiet = 0;        // -quiet: never the status line
  std::uint8_t stats = 0;        // -stats: a summary on stderr at the end
  std::uint8_t unordered = 0;    // -unordered: a name's rows as soon as it is done, not in input order
  std::int32_t hold_mb = 64;     // -hold_mb: MiB of finished names' reports held for input order
  std::uint64_t skip_lines = 0;  // -skip_lines: input lines passed over unread before the first name
  std::uint8_t clean_input = 0;  // -clean_input: piped lines trimmed; blank and comment lines skipped
  std::uint8_t ipv6 = 0;    // accepted and stored; the query path never consults it
  std::uint8_t ip6_lookup = 0;  // -ip6, -ip6_pipe: the name is an IPv6 address, asked under ip6.arpa
  std::uint8_t server6 = 0;     // -server6: `server` holds an IPv6 literal
  std::int32_t edns = 0;        // -edns: the UDP size offered in an OPT record; 0: no OPT record
  std::uint8_t dnssec = 0;      // -dnssec: the OPT record's DO bit (and -edns 1232 unless given)
  std::uint8_t tcp = 0;         // -tcp: a truncated UDP reply is followed by one attempt over TCP
  std::uint8_t tcp_only = 0;    // -tcp_only: every attempt over TCP
  // -resolvers FILE: the servers a run spreads its queries over, in file order, each port
  // resolved (-port, or 53) and each address once; empty without the switch.
  std::string resolvers_file;
  std::vector<resolver_entry> resolvers;
  // -retry_rcodes: a reply with one of these response codes counts as a failed attempt and the
  // name is asked again (elsewhere, with -resolvers). Without the switch: SERVFAIL and REFUSED
  // when there are resolvers to go to, none otherwise.
  std::vector<std::uint16_t> retry_rcodes;
  std::int32_t resolver_qps = 0;  // -resolver_qps: at most this many queries a second to each resolver
  std::string check_zone;         // -check_zone: where the resolvers' check names are made up
  std::string stats_json;         // -stats_json: the run's summary as one JSON document
  // -iterative: every name resolved from the root servers down, without a recursive resolver.
  std::uint8_t iterative = 0;
  std::string roots_file;               // -roots FILE; empty: the built-in root servers
  std::vector<std::string> roots;       // the root servers' addresses, IPv4 and IPv6
  std::int32_t cache_mb = 64;           // -cache_mb: what the run has learned, at most this many MiB
  std::int32_t name_timeout_ms = 15000;  // -name_timeout_ms: the most one name may take
  std::uint8_t trace = 0;               // -trace: -json_names shows every query of a name
  // -qtypes: each name asked once for each of these types, in this order; empty without it.
  std::vector<std::uint16_t> asked_types;
  std::uint8_t cidr = 0;  // -cidr: an address/prefix with -ip or -ip6 stands for its whole range
};
