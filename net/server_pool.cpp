#include "net/server_pool.h"

#include <algorithm>
#include <tuple>
#include <bit>
#include <cmath>
#include <limits>

#include "dns/message_header.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

// A server starts at this many queries a round trip, and again after a probe: enough to learn
// its pace in a few round trips without flooding one that takes little. Before a round trip is
// known, at this rate.
constexpr double k_initial_window = 8;
constexpr double k_unknown_rate = 100;
// What the rate keeps when it shrinks (CUBIC's 0.7 rather than Reno's half: rate limits are
// steady, and a gentler cut keeps closer to them); it never goes below one query a round trip.
constexpr double k_shrink = 0.7;
// The window lets twice what the rate sends in a round be in flight, so a round trip that varies
// does not hold the pace back.
constexpr double k_window_room = 2;
// Congestion shows in a round of at least this many queries, as one of these shares: queries
// left without a reply for two round trips, beyond the least share of recent rounds (what the
// path loses anyway, and a few late replies); REFUSED or SERVFAIL.
constexpr std::uint32_t k_min_round_queries = 16;
constexpr double k_unanswered_share = 0.07;
constexpr double k_rejected_share = 0.05;    // REFUSED or SERVFAIL
constexpr std::int64_t k_queueing_us = 10000;  // and round trips over twice the shortest by this
// A round lasts two round trips with their deviation, at least this long; before a round trip is
// known, the longer one.
constexpr microseconds k_shortest_round{20000};
constexpr microseconds k_unknown_round{100000};
// The rate never goes below one query per round trip, or per this long on a short one.
constexpr double k_floor_rtt_s = 0.1;
// Queries a server may fail in a row before it is set aside, and probes it may fail before a run
// with no server left gives up.
constexpr std::uint32_t k_failures_to_set_aside = 16;
// The share of usable replies among its replies (REFUSED and SERVFAIL are not), as a moving
// average over about the last eight: a server gets queries in proportion to it (never less than
// a fiftieth), and one whose share stays under a tenth over sixteen replies is set aside.
constexpr double k_use_weight = 1.0 / 8;
constexpr double k_least_useful = 0.02;
constexpr double k_set_aside_useful = 0.1;
constexpr std::uint32_t k_probes_before_giving_up = 3;
constexpr std::uint32_t k_longest_pause_doubling = 6;  // the pause grows to 64 times the first
// Pacing may make up for a late wake-up as far back as one round trip (within these bounds): a
// loop busy with a few hundred replies still sends at the rate, in a burst no larger than the
// window a server without pacing would get at once, and far below the 50 ms or more of queries
// that rate limiters let pass at once.
constexpr nanoseconds k_least_pace_credit = milliseconds(2);
constexpr nanoseconds k_most_pace_credit = milliseconds(50);

// Round trips in a log histogram of 16 steps per doubling (within about 4%), for the median.
constexpr int k_sub_bits = 4;
constexpr std::size_t k_histogram_size = (32 - k_sub_bits) << k_sub_bits;

std::size_t histogram_slot(std::uint64_t micros) {
  constexpr std::uint64_t direct = 1u << k_sub_bits;
  if (micros < direct) return static_cast<std::size_t>(micros);
  const int top = std::min(static_cast<int>(std::bit_width(micros)) - 1, 31);
  const std::size_t sub = static_cast<std::size_t>(micros >> (top - k_sub_bits)) & (direct - 1);
  return std::min(k_histogram_size - 1, (static_cast<std::size_t>(top - k_sub_bits + 1) << k_sub_bits) + sub);
}

double slot_middle(std::size_t slot) {
  constexpr std::size_t direct = 1u << k_sub_bits;
  if (slot < direct) return static_cast<double>(slot);
  const int shift = static_cast<int>(slot >> k_sub_bits) - 1;
  const double low = static_cast<double>((direct + (slot & (direct - 1))) << shift);
  return low + static_cast<double>(std::uint64_t{1} << shift) / 2;
}

}  // namespace

std::string_view health_word(server_health health) {
  switch (health) {
    case server_health::checking: return "checking";
    case server_health::usable: return "usable";
    case server_health::set_aside: return "set aside";
    case server_health::lying: return "lying";
  }
  return "";
}

std::string_view reason_word(aside_reason reason) {
  switch (reason) {
    case aside_reason::none: return "";
    case aside_reason::silent: return "not answering";
    case aside_reason::rejecting: return "answering REFUSED or SERVFAIL";
    case aside_reason::lying: return "answering names that do not exist";
  }
  return "";
}

server_pool::server_pool(std::size_t count, const pool_settings& settings) : m_settings(settings), m_servers(count) {
  const time_point now = clock::now();
  for (server& s : m_servers) {
    start_afresh(s, now);
    s.health = m_settings.health ? server_health::checking : server_health::usable;
  }
}

std::size_t server_pool::add(time_point now) {
  server& s = m_servers.emplace_back();
  start_afresh(s, now);
  s.health = m_settings.health ? server_health::checking : server_health::usable;
  return m_servers.size() - 1;
}

constexpr double k_unmeasured_rtt_us = 376000;

std::size_t server_pool::choose_among(std::span<const std::size_t> candidates,
                                      std::span<const std::size_t> tried) const {
  const auto cost = [&](std::size_t i) {
    const server& s = m_servers[i];
    const bool was_tried = std::find(tried.begin(), tried.end(), i) != tried.end();
    // A server not measured yet counts as a slow one (a round trip of 376 ms, as unbound counts
    // it) and takes one query at a time until it answers: a dead one must not take every name
    // of a burst.
    const double rtt = s.srtt_us > 0 ? s.srtt_us : k_unmeasured_rtt_us * (1.0 + static_cast<double>(s.in_flight));
    const double penalty = 1e6 * s.timeouts_in_row;
    return std::tuple(was_tried, s.health != server_health::usable, rtt + penalty);
  };
  return *std::min_element(candidates.begin(), candidates.end(),
                           [&](std::size_t a, std::size_t b) { return cost(a) < cost(b); });
}

void server_pool::start_afresh(server& s, time_point now) const {
  s.rate = s.srtt_us > 0 ? k_initial_window / pace_rtt(s) : k_unknown_rate;
  s.threshold = std::numeric_limits<double>::infinity();
  s.round_start = now;
  s.rounds = {};
  s.rounds[s.round % k_rounds] = {s.round};
  s.recovered = now;
  s.failures_in_row = s.timeouts_in_row = 0;
  s.useful = 1;
  s.outcomes = 0;
  s.last_answered_sent = now;
  s.next_send = now;
}

std::size_t server_pool::count(server_health health) const {
  return static_cast<std::size_t>(
      std::count_if(m_servers.begin(), m_servers.end(), [&](const server& s) { return s.health == health; }));
}

// Long enough for its last queries to be answered before the round is judged, and for its rate to
// send enough queries to judge by: a slow rate must be able to grow again.
microseconds server_pool::round_length(const server& s) const {
  if (s.srtt_us <= 0) return k_unknown_round;
  const double trips = 2 * s.srtt_us + 2 * s.rttvar_us;
  const double enough = m_settings.adaptive ? 1e6 * k_min_round_queries / s.rate : 0;
  return std::max(k_shortest_round, microseconds(static_cast<std::int64_t>(std::max(trips, enough))));
}

nanoseconds server_pool::interval(const server& s) const {
  double seconds = m_settings.adaptive ? 1.0 / s.rate : 0;
  if (m_settings.rate_cap > 0) seconds = std::max(seconds, 1.0 / m_settings.rate_cap);
  return nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
}

// What a server gives: its rate, as much as of it is answered. One that refuses or fails most
// names gets few, however fast it says so.
double server_pool::weight(const server& s) const {
  if (!m_settings.adaptive) return 1;
  const double rate = m_settings.rate_cap > 0 ? std::min(s.rate, m_settings.rate_cap) : s.rate;
  return rate * std::max(s.useful, k_least_useful);
}

double server_pool::window(const server& s) const {
  const double round = std::chrono::duration<double>(round_length(s)).count();
  return std::min(std::max(k_initial_window, k_window_room * s.rate * round), static_cast<double>(m_settings.window_cap));
}

// Queries sent this round and the last that have no reply yet: older ones are late or lost, and
// wait out their time-out without holding the window.
std::uint32_t server_pool::recent_in_flight(const server& s) const {
  std::uint32_t count = 0;
  for (const std::uint64_t back : {std::uint64_t{0}, std::uint64_t{1}}) {
    if (s.round < back) break;
    const round_counts& r = s.rounds[(s.round - back) % k_rounds];
    if (r.index == s.round - back) count += r.sent - std::min(r.sent, r.answered + r.rejected + r.timed_out);
  }
  return count;
}

bool server_pool::has_room(const server& s, time_point now) const {
  if (s.health != server_health::usable || s.next_send > now) return false;
  return !m_settings.adaptive || static_cast<double>(recent_in_flight(s)) < window(s);
}

std::optional<std::size_t> server_pool::choose(time_point now, std::span<const std::size_t> tried) {
  // A name goes to a server it has not tried while there is one that may be asked, or that is
  // being checked and may be asked in a moment, and never to the server of its last attempt
  // while any other may be.
  const auto usable_and = [&](auto&& test, bool or_checking = false) {
    for (std::size_t i = 0; i < m_servers.size(); ++i) {
      const server_health h = m_servers[i].health;
      if ((h == server_health::usable || (or_checking && h == server_health::checking)) && test(i)) return true;
    }
    return false;
  };
  const auto was_tried = [&](std::size_t i) { return std::find(tried.begin(), tried.end(), i) != tried.end(); };
  const bool untried = usable_and([&](std::size_t i) { return !was_tried(i); }, !tried.empty());
  const bool not_last = !tried.empty() && usable_and([&](std::size_t i) { return i != tried.back(); });
  double total = 0;
  server* best = nullptr;
  for (std::size_t i = 0; i < m_servers.size(); ++i) {
    server& s = m_servers[i];
    advance_rounds(s, now);
    if ((untried && was_tried(i)) || (not_last && i == tried.back()) || !has_room(s, now)) continue;
    const double w = weight(s);
    s.weight_now += w;
    total += w;
    if (best == nullptr || s.weight_now > best->weight_now) best = &s;
  }
  if (best == nullptr) return std::nullopt;
  best->weight_now -= total;
  return static_cast<std::size_t>(best - m_servers.data());
}

query_ticket server_pool::sent(std::size_t index, time_point now) {
  server& s = m_servers[index];
  advance_rounds(s, now);
  ++s.in_flight;
  ++s.queries;
  const nanoseconds credit = std::clamp<nanoseconds>(microseconds(static_cast<std::int64_t>(s.srtt_us)),
                                                       k_least_pace_credit, k_most_pace_credit);
  s.next_send = std::max(s.next_send, now - credit) + interval(s);
  round_counts& r = s.rounds[s.round % k_rounds];
  ++r.sent;
  return {s.round, now};
}

void server_pool::ended(std::size_t index, const query_ticket& ticket, query_fate fate, time_point now,
                        microseconds rtt, std::uint16_t rejected_by) {
  server& s = m_servers[index];
  advance_rounds(s, now);
  if (s.in_flight > 0) --s.in_flight;
  round_counts* r = nullptr;
  if (s.round - ticket.round < k_rounds && s.rounds[ticket.round % k_rounds].index == ticket.round)
    r = &s.rounds[ticket.round % k_rounds];
  switch (fate) {
    case query_fate::answered:
      ++s.answers;
      note_use(s, true);
      if (ticket.sent_at >= s.last_answered_sent) {
        s.last_answered_sent = ticket.sent_at;
        s.failures_in_row = s.timeouts_in_row = 0;
      }
      note_rtt(s, rtt);
      if (r) {
        ++r->answered;
        if (r->min_rtt_us < 0 || rtt.count() < r->min_rtt_us) r->min_rtt_us = rtt.count();
      }
      break;
    case query_fate::rejected:
      ++(rejected_by == k_rcode_refused ? s.refused : s.servfail);
      if (r) ++r->rejected;
      note_use(s, false);
      break;
    case query_fate::timed_out:
      ++s.timeouts;
      if (r) ++r->timed_out;
      if (ticket.sent_at >= s.last_answered_sent) {
        ++s.failures_in_row;
        ++s.timeouts_in_row;
      }
      break;
    case query_fate::abandoned:
      break;
  }
  if (!m_settings.health || s.health != server_health::usable) return;
  // Silent: time-outs in a row, counted in the order sent. Rejecting: hardly a usable reply of
  // late, however fast the replies come.
  if (s.failures_in_row >= k_failures_to_set_aside)
    set_aside(s, aside_reason::silent, now);
  else if (s.outcomes >= k_failures_to_set_aside && s.useful < k_set_aside_useful)
    set_aside(s, aside_reason::rejecting, now);
}

void server_pool::note_use(server& s, bool useful) {
  s.useful += k_use_weight * ((useful ? 1.0 : 0.0) - s.useful);
  ++s.outcomes;
}

void server_pool::note_rtt(server& s, microseconds rtt) {
  const double r = static_cast<double>(std::max<std::int64_t>(rtt.count(), 1));
  if (s.srtt_us <= 0) {  // RFC 6298 section 2
    s.srtt_us = r;
    s.rttvar_us = r / 2;
  } else {
    s.rttvar_us = 0.75 * s.rttvar_us + 0.25 * std::abs(s.srtt_us - r);
    s.srtt_us = 0.875 * s.srtt_us + 0.125 * r;
  }
  if (s.min_rtt_us < 0 || rtt.count() < s.min_rtt_us) s.min_rtt_us = rtt.count();
  if (s.rtt_histogram.empty()) s.rtt_histogram.resize(k_histogram_size);
  ++s.rtt_histogram[histogram_slot(static_cast<std::uint64_t>(std::max<std::int64_t>(rtt.count(), 0)))];
}

void server_pool::measured(std::size_t index, microseconds rtt) { note_rtt(m_servers[index], rtt); }

// Rounds end as time passes; a round is judged when the one after it is over too, so its last
// queries had two round trips to be answered.
void server_pool::advance_rounds(server& s, time_point now) {
  if (!m_settings.adaptive) return;
  const microseconds length = round_length(s);
  // A server left idle for long skips its empty rounds at once.
  if (now - s.round_start > 4 * k_rounds * length) {
    s.round += k_rounds;
    s.round_start = now;
    s.rounds[s.round % k_rounds] = {s.round};
    return;
  }
  while (now >= s.round_start + length) {
    s.round_start += length;
    ++s.round;
    const round_counts& judged = s.rounds[(s.round - 2) % k_rounds];
    if (s.round >= 2 && judged.index == s.round - 2 && s.round_start - 2 * length >= s.recovered)
      judge_round(s, judged, now);
    s.rounds[s.round % k_rounds] = {s.round};
  }
}

// A round of enough queries, sent since the rate last dropped, shows congestion or lets the rate
// grow; a round in which the server had less to do than its rate allows shows neither.
void server_pool::judge_round(server& s, const round_counts& r, time_point now) {
  if (s.health != server_health::usable || r.sent < k_min_round_queries) return;
  const std::uint32_t replies = r.answered + r.rejected;
  const double unanswered = 1.0 - static_cast<double>(replies) / r.sent;
  const double rejected = replies == 0 ? 0 : static_cast<double>(r.rejected) / replies;
  const bool queueing = s.min_rtt_us > 0 && r.min_rtt_us > 2 * s.min_rtt_us + k_queueing_us;
  s.unanswered[s.judged++ % s.unanswered.size()] = unanswered;
  const double usual = *std::min_element(s.unanswered.begin(), s.unanswered.begin() +
                                         static_cast<long>(std::min<std::size_t>(s.judged, s.unanswered.size())));
  if (unanswered > usual + k_unanswered_share || (rejected > k_rejected_share && r.rejected >= 2) || queueing) {
    shrink(s, r, now);
    return;
  }
  const double round = std::chrono::duration<double>(round_length(s)).count();
  if (r.sent >= s.rate * round / 2) grow(s);
}

double server_pool::rate_floor(const server& s) const { return 1 / std::max(pace_rtt(s), k_floor_rtt_s); }

// The round trip that paces growth: the shortest seen, not the smoothed one (queues that our own
// load builds up would slow the growth they should not), and no shorter than a round, since a
// server on the same machine answers in a fraction of a millisecond but may still take no more
// than a few hundred queries a second.
double server_pool::pace_rtt(const server& s) const {
  const double rtt = s.min_rtt_us > 0 ? static_cast<double>(s.min_rtt_us) / 1e6 : s.srtt_us / 1e6;
  return std::max(rtt, std::chrono::duration<double>(k_shortest_round).count());
}

void server_pool::shrink(server& s, const round_counts& r, time_point now) {
  const double floor = rate_floor(s);
  double rate = s.rate * k_shrink;
  // The first drop ends the doubling, which may have gone far past what the server takes: no
  // further than what it answered in that round.
  if (std::isinf(s.threshold)) {
    const double round = std::chrono::duration<double>(round_length(s)).count();
    rate = std::min(rate, r.answered / round);
  }
  s.rate = s.threshold = std::max(floor, rate);
  s.recovered = now;
}

void server_pool::grow(server& s) {
  const double rtt = pace_rtt(s);
  const double round = std::chrono::duration<double>(round_length(s)).count();
  if (s.rate < s.threshold)
    s.rate *= 2;
  else
    s.rate += round / (rtt * rtt);  // one query per round trip more, each round trip
  // Past what -resolver_qps lets out, growing would only mislead the weights.
  if (m_settings.rate_cap > 0) s.rate = std::min(s.rate, m_settings.rate_cap);
}

void server_pool::set_aside(server& s, aside_reason reason, time_point now) {
  s.health = reason == aside_reason::lying ? server_health::lying : server_health::set_aside;
  s.reason = reason;
  const auto doublings = std::min(s.failed_probes, k_longest_pause_doubling);
  s.probe_due = now + m_settings.probe_pause * (1 << doublings);
}

void server_pool::checked(std::size_t index, aside_reason verdict, time_point now) {
  server& s = m_servers[index];
  if (verdict == aside_reason::none) {
    s.health = server_health::usable;
    s.reason = aside_reason::none;
    s.failed_probes = 0;
    start_afresh(s, now);
    return;
  }
  // The first check is no probe: a server that fails it gets its three probes all the same.
  if (s.reason != aside_reason::none) ++s.failed_probes;
  set_aside(s, verdict, now);
}

std::vector<std::size_t> server_pool::probes_due(time_point now) {
  std::vector<std::size_t> due;
  for (std::size_t i = 0; i < m_servers.size(); ++i) {
    server& s = m_servers[i];
    if (s.health != server_health::set_aside || s.probe_due > now) continue;
    if (exhausted()) break;
    s.health = server_health::checking;
    due.push_back(i);
  }
  return due;
}

bool server_pool::exhausted() const {
  return std::all_of(m_servers.begin(), m_servers.end(), [](const server& s) {
    return s.health == server_health::lying ||
           (s.health == server_health::set_aside && s.failed_probes >= k_probes_before_giving_up);
  });
}

std::optional<server_pool::time_point> server_pool::next_change(time_point now) const {
  std::optional<time_point> next;
  const auto consider = [&](time_point at) {
    if (at > now && (!next || at < *next)) next = at;
  };
  for (const server& s : m_servers) {
    if (s.health == server_health::set_aside && !exhausted()) consider(s.probe_due);
    if (s.health != server_health::usable) continue;
    // A full window empties of the queries that go unanswered as the rounds roll on.
    if (m_settings.adaptive && static_cast<double>(recent_in_flight(s)) >= window(s))
      consider(s.round_start + round_length(s));
    else if (s.next_send > now)
      consider(s.next_send);
  }
  return next;
}

server_figures server_pool::figures(std::size_t index) const {
  const server& s = m_servers[index];
  server_figures f;
  f.queries = s.queries;
  f.answers = s.answers;
  f.timeouts = s.timeouts;
  f.refused = s.refused;
  f.servfail = s.servfail;
  f.window = window(s);
  f.health = s.health;
  // A probe in progress is no verdict yet.
  f.reason = s.health == server_health::checking ? aside_reason::none : s.reason;
  const double per = interval(s).count();
  f.rate = per > 0 && s.health == server_health::usable ? 1e9 / per : 0;
  std::uint64_t total = 0;
  for (const std::uint32_t n : s.rtt_histogram) total += n;
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < s.rtt_histogram.size() && total != 0; ++i) {
    seen += s.rtt_histogram[i];
    if (seen * 2 >= total) {
      f.median_rtt_ms = slot_middle(i) / 1000;
      break;
    }
  }
  return f;
}

