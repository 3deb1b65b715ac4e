// The pool against simulated resolvers on a fake clock: each answers after its round trip, and
// past its rate drops the query or refuses it, or is dead for a while. The demand never runs
// out, so what a server gets is what the pool lets it take.
#include "net/server_pool.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace {

using clock = server_pool::clock;
using std::chrono::milliseconds;

struct resolver {
  int rtt_ms = 20;
  double limit = 0;        // queries a second it takes; 0: any
  bool refuses = false;    // beyond the limit: REFUSED at once, else dropped
  int dead_until_ms = 0;   // drops everything before this
  int lose_every = 0;      // and every n-th query on the way, as a lossy path does
};

struct outcome {
  std::vector<double> last_second;  // queries sent to each in the last simulated second
  std::vector<double> rejected;     // its share of REFUSED replies in that second
  std::vector<server_health> health;
};

// `seconds` of a run asking as fast as the pool allows, with a 1 s time-out and the check
// passed at once by every resolver that is not dead then.
outcome simulate(const std::vector<resolver>& resolvers, int seconds) {
  pool_settings settings;
  settings.probe_pause = milliseconds(500);
  server_pool pool(resolvers.size(), settings);
  const clock::time_point start{};
  struct pending {
    std::size_t server;
    query_ticket ticket;
    bool refused;
  };
  std::multimap<clock::time_point, pending> replies, timeouts;
  std::vector<double> tokens(resolvers.size()), sent(resolvers.size()), refused(resolvers.size()), count(resolvers.size());
  const auto alive = [&](std::size_t i, int ms) { return ms >= resolvers[i].dead_until_ms; };
  for (std::size_t i = 0; i < resolvers.size(); ++i) {
    pool.measured(i, milliseconds(resolvers[i].rtt_ms));
    pool.checked(i, alive(i, 0) ? aside_reason::none : aside_reason::silent, start);
  }
  for (int ms = 0; ms < seconds * 1000; ++ms) {
    const clock::time_point now = start + milliseconds(ms);
    for (std::size_t i = 0; i < resolvers.size(); ++i) tokens[i] = std::min(tokens[i] + resolvers[i].limit / 1000, resolvers[i].limit / 20);
    for (auto at = replies.begin(); at != replies.end() && at->first <= now; at = replies.erase(at)) {
      const pending& p = at->second;
      pool.ended(p.server, p.ticket, p.refused ? query_fate::rejected : query_fate::answered, now,
                 milliseconds(resolvers[p.server].rtt_ms), 5 /* REFUSED */);
    }
    for (auto at = timeouts.begin(); at != timeouts.end() && at->first <= now; at = timeouts.erase(at))
      pool.ended(at->second.server, at->second.ticket, query_fate::timed_out, now);
    for (const std::size_t i : pool.probes_due(now)) pool.checked(i, alive(i, ms) ? aside_reason::none : aside_reason::silent, now);
    while (const auto i = pool.choose(now)) {
      const query_ticket ticket = pool.sent(*i, now);
      const resolver& r = resolvers[*i];
      const bool over = r.limit > 0 && tokens[*i] < 1;  // a query beyond the limit takes no token
      if (!over) tokens[*i] -= 1;
      if (ms >= (seconds - 1) * 1000) {
        ++sent[*i];
        if (over && r.refuses) ++refused[*i];
      }
      const bool lost = r.lose_every > 0 && static_cast<int>(++count[*i]) % r.lose_every == 0;
      if (alive(*i, ms) && !lost && (!over || r.refuses))
        replies.emplace(now + milliseconds(r.rtt_ms), pending{*i, ticket, over});
      else
        timeouts.emplace(now + milliseconds(1000), pending{*i, ticket, false});
    }
  }
  outcome result;
  for (std::size_t i = 0; i < resolvers.size(); ++i) {
    result.last_second.push_back(sent[i]);
    result.rejected.push_back(sent[i] > 0 ? refused[i] / sent[i] : 0);
    result.health.push_back(pool.health(i));
  }
  return result;
}

TEST(server_pool, each_resolver_gets_what_it_takes) {
  struct row {
    const char* label;
    std::vector<resolver> resolvers;
    std::vector<std::pair<double, double>> last_second;  // queries sent to each, within these bounds
    double most_rejected;
  };
  const row rows[] = {
      {"rate limits that drop, side by side",
       {{20, 1000}, {20, 3000}},
       {{700, 1150}, {2100, 3300}},
       0},
      {"a rate limit that refuses",
       {{40, 2000, true}},
       {{1300, 2300}},
       0.10},
      {"a path that loses a tenth of the queries, whatever the rate",
       {{20, 3000, false, 0, 10}},
       {{2100, 3300}},
       0},
      {"a slow server next to a fast one, neither limited beyond what is asked",
       {{200, 400}, {10, 4000}},
       {{250, 440}, {2800, 4400}},
       0},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    const outcome o = simulate(r.resolvers, 6);
    for (std::size_t i = 0; i < r.resolvers.size(); ++i) {
      EXPECT_GE(o.last_second[i], r.last_second[i].first) << "resolver " << i;
      EXPECT_LE(o.last_second[i], r.last_second[i].second) << "resolver " << i;
      EXPECT_LE(o.rejected[i], r.most_rejected) << "resolver " << i;
      EXPECT_EQ(o.health[i], server_health::usable) << "resolver " << i;
    }
  }
}

TEST(server_pool, a_dead_resolver_is_set_aside_and_comes_back_after_a_probe) {
  const outcome dead = simulate({{20, 2000}, {20, 0, false, 1000000}}, 4);
  EXPECT_EQ(dead.health[1], server_health::set_aside);
  EXPECT_EQ(dead.last_second[1], 0);
  EXPECT_GT(dead.last_second[0], 1400);

  const outcome back = simulate({{20, 2000}, {20, 2000, false, 2000}}, 6);
  EXPECT_EQ(back.health[1], server_health::usable);
  EXPECT_GT(back.last_second[1], 1000);
}

TEST(server_pool, a_name_goes_where_it_has_not_been_while_it_can) {
  server_pool pool(3, pool_settings{});
  const clock::time_point now{};
  for (std::size_t i = 0; i < 3; ++i) pool.checked(i, aside_reason::none, now);
  const std::vector<std::size_t> first{0}, both{0, 1}, all{1, 2, 0};
  for (int i = 0; i < 4; ++i) EXPECT_NE(pool.choose(now, first), 0u);
  EXPECT_EQ(pool.choose(now, both), 2u);
  EXPECT_NE(pool.choose(now, all), 0u);  // every one tried: anywhere but the last
  pool.checked(1, aside_reason::silent, now);
  pool.checked(2, aside_reason::rejecting, now);
  EXPECT_EQ(pool.choose(now, all), 0u);  // no other to go to
  pool.checked(0, aside_reason::lying, now);
  EXPECT_EQ(pool.choose(now, all), std::nullopt);
  EXPECT_FALSE(pool.exhausted());  // 1 and 2 get their probes first
}

}  // namespace
