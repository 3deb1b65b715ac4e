// The servers a run asks and what it has learned of each: how many queries a server takes at
// once and how fast, whether it may be asked, and its figures for -stats. Sans-I/O: every call
// is given the time; the pool says which server the next query goes to and when something will
// change, and is told what became of each query.
//
// Pace. Each server has a send rate, and a window of queries in flight that follows from it (the
// queries the rate puts on the wire in a round of two round trips, with room to spare); queries
// older than that count no more against the window, so the lost ones, which wait out the whole
// time-out, do not block it. The rate doubles each round at first, then grows by one query per
// round trip each round trip (additive increase), and drops to 0.7 of itself (multiplicative
// decrease) at most once a round, for queries sent since the last drop, when a round shows
// congestion: 7% more of its queries left unanswered after two round trips than the least share
// of the last eight rounds (a rate limit that drops them; a lossy path or a few late replies lose
// as many in every round and leave the rate alone), more than a twentieth answered REFUSED or
// SERVFAIL (one that refuses), or round trips more than twice the shortest seen (queues filling).
//
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <string>
#include <vector>

enum class server_health : std::uint8_t {
  checking,   // asked its check names, not judged yet: no queries
  usable,
  set_aside,  // no queries until a probe finds it answering
  lying,      // answers names that do not exist: never asked again
};

// Why a server is set aside.
enum class aside_reason : std::uint8_t { none, silent, rejecting, lying };

// What became of one query, as far as the server's pace and health go.
enum class query_fate : std::uint8_t {
  answered,   // a usable reply
  rejected,   // REFUSED or SERVFAIL
  timed_out,
  abandoned,  // ended without saying anything of the server (the send failed, the run stops)
};

struct pool_settings {
  bool adaptive = true;              // windows and pacing; false: every query goes out at once
  bool health = true;                // servers are set aside (with more than one to go to)
  std::size_t window_cap = 1000000;  // no server's window beyond the run's -inflight
  double rate_cap = 0;               // -resolver_qps; 0: none
  std::chrono::milliseconds probe_pause{1000};  // the first pause before a probe
};

// A query handed to a server, as the pool needs it back.
struct query_ticket {
  std::uint64_t round = 0;
  std::chrono::steady_clock::time_point sent_at{};
};

// A server's figures for -stats and -stats_json.
struct server_figures {
  std::uint64_t queries = 0, answers = 0, timeouts = 0, refused = 0, servfail = 0;
  std::optional<double> median_rtt_ms;
  double rate = 0;    // queries a second its pace allows now; 0: unpaced
  double window = 0;  // queries it may have in flight now
  server_health health = server_health::usable;
  aside_reason reason = aside_reason::none;
};

class server_pool {
 public:
  using clock = std::chrono::steady_clock;
  using time_point = clock::time_point;

  // `count` servers; with health, each starts checking, else usable.
  server_pool(std::size_t count, const pool_settings& settings);
  std::size_t size() const { return m_servers.size(); }

  // The server for a name's next query: usable, with room in its window and its pace, in
  // proportion to the weights (smooth weighted round robin); not one the name has `tried` while
  // another may be asked, and never its last while any other may. nullopt when none can take it
  // now.
  std::optional<std::size_t> choose(time_point now, std::span<const std::size_t> tried = {});
  // A server more (one an iterative run has just learned of); its number.
  std::size_t add(time_point now);
  // Of `candidates` (not empty), the server a query is best sent to: one it has not `tried`,
  // usable, then the fastest measured; a server never measured counts as one of 376 ms (and
  // takes one query at a time until it answers), and each time-out in a row as a second more. Windows and pace do not matter here: the
  // caller paces its queries.
  std::size_t choose_among(std::span<const std::size_t> candidates, std::span<const std::size_t> tried) const;
  // A query went to `server` (chosen, or a TCP follow-up to the same one).
  query_ticket sent(std::size_t server, time_point now);
  // What became of it; `rtt` for an answered or rejected query. `rejected_by` is the reply's
  // response code when its fate is `rejected`.
  void ended(std::size_t server, const query_ticket& ticket, query_fate fate, time_point now,
             std::chrono::microseconds rtt = {}, std::uint16_t rejected_by = 0);

  // The check (or a probe) judged the server: usable from now on, or set aside for why.
  void checked(std::size_t server, aside_reason verdict, time_point now);
  // A round trip measured by a check, before the server takes queries.
  void measured(std::size_t server, std::chrono::microseconds rtt);
  // Servers set aside whose pause is over: each is now checking, and the caller probes it.
  std::vector<std::size_t> probes_due(time_point now);

  server_health health(std::size_t server) const { return m_servers[server].health; }
  std::size_t count(server_health health) const;
  // Every server is set aside or lying, and none has answered a probe after three tries: the
  // run cannot ask anyone any more.
  bool exhausted() const;
  // The earliest time after `now` when a server's pace or a probe lets something happen; none
  // when only a reply or a time-out can.
  std::optional<time_point> next_change(time_point now) const;

  server_figures figures(std::size_t server) const;

 private:
  static constexpr std::size_t k_rounds = 4;
  struct round_counts {
    std::uint64_t index = ~std::uint64_t{0};
    std::uint32_t sent = 0, answered = 0, rejected = 0, timed_out = 0;
    std::int64_t min_rtt_us = -1;
  };
  struct server {
    server_health health = server_health::usable;
    aside_reason reason = aside_reason::none;
    double rate = 0;       // queries a second
    double threshold = 0;  // the slow start ends here
    std::size_t in_flight = 0;
    time_point next_send{};
    double srtt_us = 0, rttvar_us = 0;
    std::int64_t min_rtt_us = -1;
    std::uint64_t round = 0;
    time_point round_start{};
    std::array<round_counts, k_rounds> rounds{};
    time_point recovered{};  // queries sent before it do not shrink the rate again
    std::array<double, 8> unanswered{};  // the shares of the last rounds judged
    std::size_t judged = 0;
    // Failures in a row count queries sent after the last one it answered: the time-outs of a
    // burst arrive together, a second after answers to later queries.
    std::uint32_t failures_in_row = 0, timeouts_in_row = 0;
    time_point last_answered_sent{};
    double useful = 1;           // the recent share of usable replies among its replies
    std::uint32_t outcomes = 0;  // replies since it became usable
    std::uint32_t failed_probes = 0;
    time_point probe_due{};
    double weight_now = 0;  // smooth weighted round robin
    std::uint64_t queries = 0, answers = 0, timeouts = 0, refused = 0, servfail = 0;
    std::vector<std::uint32_t> rtt_histogram;
  };

  void start_afresh(server& s, time_point now) const;
  void advance_rounds(server& s, time_point now);
  void judge_round(server& s, const round_counts& r, time_point now);
  void shrink(server& s, const round_counts& r, time_point now);
  void grow(server& s);
  double window(const server& s) const;
  double rate_floor(const server& s) const;  // one query a round trip
  double pace_rtt(const server& s) const;
  std::uint32_t recent_in_flight(const server& s) const;
  void note_rtt(server& s, std::chrono::microseconds rtt);
  void note_use(server& s, bool useful);
  void set_aside(server& s, aside_reason reason, time_point now);
  bool has_room(const server& s, time_point now) const;
  std::chrono::nanoseconds interval(const server& s) const;
  std::chrono::microseconds round_length(const server& s) const;
  double weight(const server& s) const;

  pool_settings m_settings;
  std::vector<server> m_servers;
};

std::string_view health_word(server_health health);
std::string_view reason_word(aside_reason reason);
