// Resolving names from the root down, many at once, without I/O: each name is a walk that asks
// the best delegation it knows, follows referrals and CNAME/DNAME links, and looks up the
// addresses of name servers that came without glue (a walk of its own, a few levels deep at
// most). Names that need the same thing at the same time share one query: a walk that would
// ask a zone about the same next label as a query already in flight waits for that query and
// then goes on from what it taught the cache. The driver takes the queries to send, chooses a
// server of each among those it offers, and hands back what each attempt got; finished names
// come out with the reply to report.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "dns/dns_record.h"
#include "dns/query_builder.h"
#include "net/deadline_heap.h"
#include "resolve/reply_reading.h"
#include "resolve/resolver_cache.h"
#include "resolve/server_registry.h"

struct resolve_settings {
  query_settings query;             // EDNS and DO as the run asks; recursion is never asked
  std::int32_t retry = 0;           // each server of a zone is tried retry + 1 times at most
  int referral_limit = 16;          // per name
  int query_limit = 64;             // per name, the lookups of its name servers' addresses included
  int depth_limit = 4;              // address lookups within address lookups
  std::chrono::milliseconds name_timeout{15000};
  bool trace = false;
};

// One query of a name's resolution, as -trace shows it.
struct trace_step {
  std::string server;
  std::string zone;
  std::string name;
  std::uint16_t type = 0;
  std::string result;  // the response code, or the status of an attempt without a reply
  std::int64_t rtt_us = -1;
  std::string led_to;  // what the resolution made of it
};

// A name at its end.
struct resolved_name {
  std::uint64_t token = 0;  // as start() was given it
  cached_answer report;     // the reply that ended it, the answer section as a recursive resolver gives it
  bool answered = false;    // as an exchange would say of that reply
  std::string reason;       // why it failed, when more than its last reply tells
  std::uint32_t queries = 0;
  std::vector<trace_step> trace;
};

class iterative_resolver {
 public:
  using clock = std::chrono::steady_clock;

  // `roots`: the root servers' numbers in `servers`.
  iterative_resolver(server_registry& servers, std::vector<std::size_t> roots, const resolve_settings& settings,
                     resolver_cache& cache);

  // Resolves the question of `query` (a query built for the name, its ID and flags as they
  // will be reported).
  void start(std::uint64_t token, const DNS_RES_RECORD& query, clock::time_point now);

  // The next query waiting for a server: its message, the servers it may go to (those with
  // tries left), those it has tried, and the one it must go to (a TCP follow-up).
  struct waiting_query {
    std::uint32_t id;
    const DNS_RES_RECORD* query;
    std::span<const std::size_t> servers;
    std::span<const std::size_t> tried;
    std::optional<std::size_t> fixed;
    bool over_tcp;
  };
  std::optional<waiting_query> next_query() const;
  // The driver sent it (or will): it leaves the queue.
  void sending(std::uint32_t id);
  // What an attempt of query `id` to `server` got; `sent` is the message as it went.
  void attempt_ended(std::uint32_t id, std::size_t server, const DNS_RES_RECORD& sent, dns_packet_transaction&& got,
                     bool answered, clock::time_point now);

  // Names whose -name_timeout_ms ran out end.
  void expire(clock::time_point now);
  std::optional<clock::time_point> next_deadline();
  std::optional<resolved_name> next_resolved();
  bool busy() const { return m_active_tops != 0; }

 private:
  struct exchange_seen {
    DNS_RES_RECORD query;
    dns_packet_transaction transaction;
    bool answered = false;
  };
  struct walk {
    bool active = false;
    std::uint32_t generation = 0;
    std::optional<std::uint64_t> token;  // a name of the input; none: an address lookup
    std::uint32_t top = 0;               // the input's name it works for
    std::string name;
    std::uint16_t type = 0;
    std::string target;  // the end of the links followed so far
    std::vector<DNS_RES_RECORD> chain;
    std::vector<std::string> visited;
    std::vector<std::string> failed_hosts;  // name servers without an address
    std::vector<std::string> looking_up;    // hosts whose lookup this walk is part of
    int links = 0, referrals = 0, depth = 0;
    clock::time_point deadline;
    DNS_RES_RECORD query;  // the name's own query, for the report
    std::optional<exchange_seen> last;
    std::uint32_t queries = 0;
    std::vector<trace_step> trace;
  };
  struct waiter {
    std::uint32_t walk;
    std::uint32_t generation;
  };
  struct query_state {
    bool live = false;
    std::string key, zone, name;
    std::uint16_t type = 0;
    DNS_RES_RECORD query;
    std::vector<std::size_t> servers, tried, usable;
    std::vector<int> tries;  // per server of `servers`
    std::optional<std::size_t> fixed;
    bool over_tcp = false;
    waiter owner{};  // the walk that made it: its name counts the queries
    std::vector<waiter> waiters;
    std::optional<exchange_seen> last;
  };
  struct address_lookup {
    std::vector<waiter> waiters;
    int pending = 0;
    bool found = false;
  };

  std::uint32_t new_walk();
  void advance(std::uint32_t id, clock::time_point now);
  std::string known_zone(const std::string& name, clock::time_point now);
  std::vector<std::size_t> zone_servers(const std::string& zone, const walk& w, clock::time_point now,
                                        std::vector<std::string>& hosts);
  void ask(std::uint32_t id, const std::string& zone, clock::time_point now);
  void look_up(std::uint32_t id, const std::string& host, clock::time_point now);
  void query_done(std::uint32_t q, const reply_reading& reading, clock::time_point now);
  void query_failed(std::uint32_t q, const std::string& why, clock::time_point now);
  void apply(std::uint32_t id, const reply_reading& reading, clock::time_point now);
  void learn(const reply_reading& reading, clock::time_point now);
  void finish(std::uint32_t id, std::vector<DNS_RES_RECORD> answers, std::uint32_t ttl, clock::time_point now);
  void finish_cached(std::uint32_t id, const cached_answer& cached, clock::time_point now);
  void fail(std::uint32_t id, const std::string& reason, clock::time_point now);
  void end_walk(std::uint32_t id, clock::time_point now);
  void lookup_part_done(const std::string& host, const std::vector<DNS_RES_RECORD>& answers, std::uint32_t ttl,
                        clock::time_point now);
  void note_step(query_state& q, std::size_t server, const dns_packet_transaction& got, const std::string& led_to);
  bool alive(const waiter& w) const { return m_walks[w.walk].active && m_walks[w.walk].generation == w.generation; }
  walk& top_of(const walk& w) { return m_walks[w.top]; }

  server_registry& m_servers;
  std::vector<std::size_t> m_roots;
  resolve_settings m_settings;
  resolver_cache& m_cache;
  std::vector<walk> m_walks;
  std::vector<std::uint32_t> m_free_walks;
  std::vector<query_state> m_queries;
  std::vector<std::uint32_t> m_free_queries;
  std::unordered_map<std::string, std::uint32_t> m_in_flight;  // by key: the query a walk may wait for
  std::map<std::string, address_lookup> m_lookups;             // by host
  std::deque<std::uint32_t> m_waiting;                         // queries waiting for a server
  deadline_heap<waiter> m_deadlines;  // the names' -name_timeout_ms
  std::deque<resolved_name> m_resolved;
  std::size_t m_active_tops = 0;
};
