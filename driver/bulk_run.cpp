#include "driver/bulk_run.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "dns/query_builder.h"
#include "driver/ordered_output.h"
#include "net/attempt_plan.h"
#include "net/deadline_heap.h"
#include "net/exchange_engine.h"
#include "net/interrupt.h"
#include "net/resolver_check.h"
#include "net/server_address.h"
#include "net/server_pool.h"
#include "report/attempt_report.h"
#include "report/json_writer.h"
#include "report/name_object_writer.h"
#include "report/stream_format.h"
#include "report/table_writer.h"
#include "time/clock.h"

namespace {

using clock = std::chrono::steady_clock;

// Names each resolver of a pool is asked before it takes any name, and when it comes back.
constexpr std::size_t k_check_names = 3;
// The shortest pause before a resolver set aside is probed, whatever the attempts' wait.
constexpr std::chrono::milliseconds k_shortest_probe_pause{100};

// One name on its way: waiting for a server, asking one, pausing before its next attempt.
struct flight {
  enum class state { free, ready, asking, pausing };
  state now = state::free;
  bool over_tcp = false;               // the next attempt goes over TCP
  bool follow_up = false;              // ... as the follow-up of a truncated reply, to the same server
  std::int32_t counted = 0;            // attempts that count against -retry
  std::uint64_t sequence = 0;          // its place in the hold queue
  name_entry name;                     // its query is the one sent
  dns_packet_transaction transaction;  // the attempt in flight
  std::vector<finished_attempt> attempts;
  std::vector<std::size_t> tried;  // the servers of its attempts so far, the last one last
  std::size_t server = 0;
  query_ticket ticket;
  std::uint32_t generation = 0;  // a pause timer pushed before the last one is stale
};

// A check name sent to a resolver of a pool.
struct check_query {
  std::size_t server = 0;
  DNS_RES_RECORD query;
  dns_packet_transaction transaction;
};

struct pause_token {
  std::size_t slot;
  std::uint32_t generation;
};

std::chrono::microseconds round_trip(const dns_packet_transaction& transaction) {
  return std::chrono::microseconds(std::max<std::int64_t>(transaction.round_trip_us, 0));
}

pool_settings pool_settings_of(const input_params& config) {
  pool_settings settings;
  const bool resolvers = !config.resolvers.empty();
  settings.adaptive = resolvers;
  settings.health = config.resolvers.size() > 1;
  settings.window_cap = static_cast<std::size_t>(config.inflight);
  settings.rate_cap = config.resolver_qps;
  const int wait = attempt_wait_ms(config);
  settings.probe_pause = wait < 0 ? std::chrono::milliseconds(1000)
                                  : std::max(k_shortest_probe_pause, std::chrono::milliseconds(wait));
  return settings;
}

class bulk_scheduler {
 public:
  bulk_scheduler(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
                 run_progress& progress, name_outcome& worst, std::uint64_t lines_before)
      : m_config(config), m_next(next), m_extras(extras), m_progress(progress),
        m_slots(static_cast<std::size_t>(config.inflight)),
        m_plan(config.retry, config.delay, config.tcp != 0, config.tcp_only != 0, config.retry_rcodes),
        m_servers(servers_of(config)),
        m_checking(m_servers.size() > 1),
        m_checks(m_checking ? m_servers.size() * k_check_names : 0),
        m_engine(m_servers, m_slots.size() + m_checks.size(), std::chrono::milliseconds(attempt_wait_ms(config))),
        m_pool(m_servers.size(), pool_settings_of(config)),
        m_check(m_servers.size(), k_check_names),
        m_why(m_servers.size()),
        m_output(out, config, extras, progress, worst, lines_before),
        m_one_at_a_time(config.inflight <= 1) {
    for (std::size_t i = m_slots.size(); i-- > 0;) m_free.push_back(i);
    if (m_checking && !config.check_zone.empty())
      m_check_zone = config.check_zone == "." ? std::vector<std::uint8_t>{0} : *encode_name(config.check_zone);
  }

  bulk_result run() {
    while (m_output.write_finished() && interrupt_signal() == 0) {
      m_progress.tick();
      admit();
      const clock::time_point now = clock::now();
      end_pauses(now);
      probe(now);
      dispatch(now);
      m_engine.send_queued();
      note_progress();
      if (m_input_done && m_free.size() == m_slots.size() && m_output.empty()) break;
      for (const exchange_engine::finished& done : m_engine.wait(next_wake(now))) ended(done);
    }
    // After a stop signal: what may be written by now, and nothing more.
    const bool written = m_output.write_finished();
    return {written, m_output.resume_line()};
  }

  std::uint64_t strays() const { return m_engine.strays(); }

  // Every server's figures, for -stats and -stats_json.
  std::vector<server_summary> server_summaries() const {
    std::vector<server_summary> lines;
    for (std::size_t i = 0; i < m_servers.size(); ++i) {
      const server_figures f = m_pool.figures(i);
      lines.push_back({m_servers[i].text(), m_servers[i].port(), f.queries, f.answers, f.timeouts, f.refused,
                       f.servfail, f.median_rtt_ms, f.rate, std::string(health_word(f.health)),
                       std::string(reason_word(f.reason)), m_why[i]});
    }
    return lines;
  }

 private:
  // New names start while a slot is free and the held reports leave room: a slow name holds
  // back the output, not the names after it. One at a time, the next name also waits out the
  // pauses that one at a time sleeps after a name.
  void admit() {
    while (!m_input_done && !m_free.empty() && m_output.has_room() && interrupt_signal() == 0) {
      if (m_one_at_a_time && clock::now() < m_admit_after) return;
      const std::size_t index = m_free.back();
      flight& f = m_slots[index];
      if (!m_next(f.name)) {
        m_input_done = true;
        return;
      }
      m_free.pop_back();
      m_engine.renew(static_cast<exchange_engine::exchange_id>(index));
      f.sequence = m_output.start();
      f.tried.clear();
      f.counted = 0;
      f.over_tcp = m_plan.first_over_tcp();
      f.follow_up = false;
      // A name that cannot be built, and every name when a negative retry count switches the
      // queries off, is done at once: silently, or for the bad name its JSON object.
      if (!f.name.built || m_plan.switched_off()) {
        complete(index);
        continue;
      }
      if (m_checking && !m_checks_started) start_checks(f.name.query);
      make_ready(index);
    }
  }

  void make_ready(std::size_t index) {
    m_slots[index].now = flight::state::ready;
    m_ready.push_back(index);
  }

  void end_pauses(clock::time_point now) {
    while (!m_pauses.empty() && m_pauses.next() <= now) {
      const pause_token token = m_pauses.pop().token;
      flight& f = m_slots[token.slot];
      if (f.now == flight::state::pausing && f.generation == token.generation) make_ready(token.slot);
    }
  }

  // Names waiting for a server get one, in order, while the pool has room (and -qps allows);
  // when no server is left to ask, they end as timed out.
  void dispatch(clock::time_point now) {
    while (!m_ready.empty() && interrupt_signal() == 0) {
      if (m_pool.exhausted()) {
        give_up();
        return;
      }
      if (m_extras.pacer && now < m_extras.pacer->next_send()) return;
      const std::size_t index = m_ready.front();
      flight& f = m_slots[index];
      const auto server = f.follow_up ? std::optional<std::size_t>(f.server) : m_pool.choose(now, f.tried);
      if (!server) return;
      if (m_extras.pacer) m_extras.pacer->sent(now);
      m_ready.pop_front();
      f.server = *server;
      f.ticket = m_pool.sent(*server, now);
      f.now = flight::state::asking;
      m_engine.submit(static_cast<exchange_engine::exchange_id>(index), *server, f.name.query, f.transaction,
                      f.over_tcp);
    }
  }

  // An exchange ended: a name's attempt, or a check name.
  void ended(const exchange_engine::finished& done) {
    if (done.id >= m_slots.size()) {
      check_ended(done.id - m_slots.size(), done.answered);
      return;
    }
    const std::size_t index = done.id;
    flight& f = m_slots[index];
    const clock::time_point now = clock::now();
    const attempt_result result = result_of(f.transaction, f.name.query, done.answered);
    m_pool.ended(f.server, f.ticket, fate_of(f.transaction, result), now, round_trip(f.transaction),
                 result.rcode.value_or(0));
    const attempt_verdict verdict = m_plan.after(result, f.counted);
    if (verdict.counted) ++f.counted;
    f.attempts.push_back({f.name.query, std::move(f.transaction), done.answered});
    f.transaction.clear();
    std::erase(f.tried, f.server);
    f.tried.push_back(f.server);
    f.over_tcp = verdict.over_tcp;
    f.follow_up = verdict.next == next_step::tcp_follow_up;
    if (verdict.next == next_step::done) {
      // One at a time sleeps the pause after a name's last failed attempt, and (piped) -delay
      // after every name: the next name waits as long.
      if (m_one_at_a_time) m_admit_after = now + verdict.pause + (m_config.use_stdin ? m_delay : std::chrono::seconds(0));
      complete(index);
    } else if (verdict.pause.count() != 0 && verdict.next == next_step::again) {
      f.now = flight::state::pausing;  // -delay: before this name's next attempt
      m_pauses.push(now + verdict.pause, {index, ++f.generation});
    } else {
      make_ready(index);
    }
  }

  // With no server left to ask, a name waiting for one ends: with its attempts so far, or, never
  // sent, as one attempt that got no reply and names no server.
  void give_up() {
    while (!m_ready.empty()) {
      const std::size_t index = m_ready.front();
      m_ready.pop_front();
      flight& f = m_slots[index];
      if (f.attempts.empty()) {
        finished_attempt never{f.name.query, {}, false};
        never.query.timestamp = now_timestamp();
        never.query.server.clear();
        never.transaction.sent = never.query.packet;
        never.transaction.sent_length = static_cast<std::uint32_t>(never.query.packet.size());
        f.attempts.push_back(std::move(never));
      }
      complete(index);
    }
  }

  // The check names: sent to every resolver before any name goes to it; the zone is that of
  // the first name to be asked, unless -check_zone names one.
  void start_checks(const DNS_RES_RECORD& first) {
    m_checks_started = true;
    if (m_check_zone.empty()) m_check_zone = parent_zone_of(first.packet);
    for (std::size_t server = 0; server < m_servers.size(); ++server) send_checks(server);
  }

  void send_checks(std::size_t server) {
    m_check.begin(server);
    query_settings settings = query_settings_of(m_config);
    const auto type = m_config.asked_type.value_or(static_cast<std::uint16_t>(m_config.query_type));
    for (std::size_t k = 0; k < k_check_names; ++k) {
      const std::size_t at = server * k_check_names + k;
      check_query& c = m_checks[at];
      c.server = server;
      build_query_wire(c.query, check_name(m_check_zone), "", type, settings);
      m_engine.submit(static_cast<exchange_engine::exchange_id>(m_slots.size() + at), server, c.query, c.transaction,
                      m_plan.first_over_tcp());
    }
  }

  void check_ended(std::size_t at, bool answered) {
    check_query& c = m_checks[at];
    m_check.record(c.server, classify_check_reply(c.transaction, answered));
    if (c.transaction.round_trip_us >= 0) m_pool.measured(c.server, round_trip(c.transaction));
    const clock::time_point now = clock::now();
    for (std::size_t server = 0; server < m_servers.size(); ++server) {
      if (m_pool.health(server) != server_health::checking) continue;
      const auto verdict = m_check.verdict(server);
      if (!verdict) continue;
      m_pool.checked(server, *verdict, now);
      if (*verdict != aside_reason::none) m_why[server] = m_check.account(server);
    }
  }

  // Resolvers set aside whose pause is over are asked their check names again.
  void probe(clock::time_point now) {
    if (!m_checking || !m_checks_started) return;
    for (const std::size_t server : m_pool.probes_due(now)) send_checks(server);
  }

  // The status line says how the resolvers stand, and when names wait for one to come back.
  void note_progress() {
    if (m_servers.size() < 2) return;
    const std::size_t usable = m_pool.count(server_health::usable);
    const std::size_t aside = m_servers.size() - usable;
    std::string note = "resolvers " + std::to_string(usable) + " usable, " + std::to_string(aside) + " set aside";
    if (usable == 0 && m_pool.count(server_health::set_aside) != 0 && !m_ready.empty()) note += ", names wait for a probe";
    m_progress.set_note(std::move(note));
  }

  // The name is done: its report is made now and held until its turn; its slot is free for the
  // next name.
  void complete(std::size_t index) {
    flight& f = m_slots[index];
    m_output.finish(f.sequence, f.name, f.attempts);
    f.attempts.clear();
    f.now = flight::state::free;
    m_free.push_back(index);
    m_finished_outside = true;
  }

  // The earliest of what the loop waits for besides the wire: a pause's end, a server's pace or
  // probe, the -qps slot of a name waiting to be sent, the next name one at a time.
  std::optional<clock::time_point> next_wake(clock::time_point now) {
    // A name finished outside a wait (a failed send, a bad name) may be writable at once, and
    // its slot may take the next name.
    if (std::exchange(m_finished_outside, false)) return now;
    std::optional<clock::time_point> next;
    const auto consider = [&](clock::time_point at) {
      if (!next || at < *next) next = at;
    };
    while (!m_pauses.empty()) {
      const pause_token& token = m_pauses.top_token();
      const flight& f = m_slots[token.slot];
      if (f.now == flight::state::pausing && f.generation == token.generation) {
        consider(m_pauses.next());
        break;
      }
      m_pauses.pop();
    }
    if (const auto change = m_pool.next_change(now)) consider(*change);
    if (!m_ready.empty() && m_extras.pacer) consider(m_extras.pacer->next_send());
    if (m_one_at_a_time && !m_input_done && m_free.size() == m_slots.size() && m_admit_after > now) consider(m_admit_after);
    return next;
  }

  input_params& m_config;
  const query_source& m_next;
  const run_extras& m_extras;
  run_progress& m_progress;
  std::vector<flight> m_slots;
  std::vector<std::size_t> m_free;
  std::deque<std::size_t> m_ready;
  deadline_heap<pause_token> m_pauses;
  const attempt_plan m_plan;
  const std::vector<server_address> m_servers;
  const bool m_checking;  // the resolvers are checked before they take names
  std::vector<check_query> m_checks;
  exchange_engine m_engine;
  server_pool m_pool;
  resolver_check m_check;
  std::vector<std::string> m_why;  // why a resolver was set aside by its check
  std::vector<std::uint8_t> m_check_zone;
  bool m_checks_started = false;
  ordered_output m_output;
  const bool m_one_at_a_time;
  const std::chrono::seconds m_delay{static_cast<unsigned>(m_config.delay)};  // sleep()'s unsigned, as always
  clock::time_point m_admit_after{};
  bool m_input_done = false;
  bool m_finished_outside = false;
};

}  // namespace

void write_bad_name(std::ostream& out, input_params& config, const name_entry& name) {
  const std::string_view fault =
      name.fault.empty() ? name_fault(name.asked, query_settings_of(config)) : std::string_view(name.fault);
  const auto type =
      name.type != 0 ? name.type : config.asked_type.value_or(static_cast<std::uint16_t>(config.query_type));
  if (config.json) write_json_bad_name(out, name.line, name.asked, fault);
  if (config.json_names)
    write_json_name(out, {name.line, name.asked, nullptr, nullptr, 0, k_outcome_bad_name, fault, {}, type}, config);
  if (config.why_columns && !config.json && !config.json_names) {
    report_bad_name(out, config, type, {name.line, name.asked, k_outcome_bad_name});
  }
}

bulk_result run_bulk(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
                     run_progress& progress, name_outcome& worst, std::uint64_t lines_before) {
  bulk_scheduler scheduler(out, config, next, extras, progress, worst, lines_before);
  const bulk_result result = scheduler.run();
  if (extras.summary) {
    extras.summary->count_strays(scheduler.strays());
    if (!config.resolvers.empty()) extras.summary->set_servers(scheduler.server_summaries());
  }
  return result;
}
