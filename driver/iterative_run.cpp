#include "driver/iterative_run.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "dns/record_types.h"
#include "driver/ordered_output.h"
#include "net/attempt_plan.h"
#include "net/exchange_engine.h"
#include "net/interrupt.h"
#include "net/server_address.h"
#include "net/server_pool.h"
#include "report/json_writer.h"
#include "resolve/iterative_resolver.h"
#include "resolve/resolver_cache.h"
#include "resolve/server_registry.h"

namespace {

using clock = std::chrono::steady_clock;

// A name of the input on its way.
struct name_slot {
  name_entry name;
  std::uint64_t sequence = 0;  // its place in the output
};

// A query of the resolver on the wire.
struct exchange_slot {
  std::uint32_t query = 0;  // the resolver's number of it
  std::size_t server = 0;
  DNS_RES_RECORD sent;
  dns_packet_transaction transaction;
  query_ticket ticket;
};

server_address address_at(const std::string& text, std::uint16_t port) {
  if (auto v6 = server_address::ipv6(text, port)) return *v6;
  return server_address::ipv4(text, port);
}

resolve_settings resolve_settings_of(const input_params& config) {
  resolve_settings settings;
  settings.query = query_settings_of(config);
  settings.retry = std::max(config.retry, 0);
  settings.name_timeout = std::chrono::milliseconds(config.name_timeout_ms);
  settings.trace = config.trace != 0;
  return settings;
}

std::vector<std::size_t> number_roots(server_registry& registry, const std::vector<std::string>& roots) {
  std::vector<std::size_t> numbers;
  for (const std::string& root : roots)
    if (const auto number = registry.number_of(root))
      if (std::find(numbers.begin(), numbers.end(), *number) == numbers.end()) numbers.push_back(*number);
  return numbers;
}

std::vector<server_address> addresses_of(const server_registry& registry, std::uint16_t port) {
  std::vector<server_address> addresses;
  for (std::size_t i = 0; i < registry.size(); ++i) addresses.push_back(address_at(registry.address(i), port));
  return addresses;
}

// The members a name's -json_names object gains: its queries, and with -trace each of them.
std::string resolution_members(const resolved_name& name, bool trace) {
  std::string members;
  json_number_member(members, "queries", name.queries);
  if (!trace) return members;
  json_key(members, "trace");
  members += '[';
  for (std::size_t i = 0; i < name.trace.size(); ++i) {
    const trace_step& step = name.trace[i];
    std::string one = "{";
    json_string_member(one, "server", step.server);
    json_string_member(one, "zone", step.zone);
    json_string_member(one, "name", step.name);
    json_string_member(one, "type", record_type_name(step.type));
    json_string_member(one, "result", step.result);
    if (step.rtt_us < 0) {
      json_null_member(one, "rtt_ms");
    } else {
      json_key(one, "rtt_ms");
      one += std::to_string(step.rtt_us / 1000) + '.' + std::to_string(step.rtt_us / 100 % 10);
    }
    json_string_member(one, "led_to", step.led_to);
    members += (i != 0 ? "," : "") + one + "}";
  }
  members += ']';
  return members;
}

class iterative_scheduler {
 public:
  iterative_scheduler(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
                      run_progress& progress, name_outcome& worst, std::uint64_t lines_before)
      : m_config(config), m_next(next), m_extras(extras), m_progress(progress),
        m_output(out, config, extras, progress, worst, lines_before),
        m_roots(number_roots(m_registry, config.roots)),
        m_cache(static_cast<std::size_t>(config.cache_mb) << 20),
        m_resolver(m_registry, m_roots, resolve_settings_of(config), m_cache),
        m_names(static_cast<std::size_t>(config.inflight)),
        // A name may have a query of its own and those of its name servers' addresses on the wire.
        m_exchanges(2 * m_names.size() + 2),
        m_engine(addresses_of(m_registry, config.port), m_exchanges.size(),
                 std::chrono::milliseconds(attempt_wait_ms(config))),
        m_pool(m_registry.size(), pool_settings{.adaptive = false, .health = false}) {
    for (std::size_t i = m_names.size(); i-- > 0;) m_free_names.push_back(i);
    for (std::size_t i = m_exchanges.size(); i-- > 0;) m_free_exchanges.push_back(static_cast<std::uint32_t>(i));
  }

  bulk_result run() {
    while (m_output.write_finished() && interrupt_signal() == 0) {
      m_progress.tick();
      const clock::time_point now = clock::now();
      admit(now);
      m_resolver.expire(now);
      take_resolved();
      dispatch(now);
      m_engine.send_queued();
      if (m_input_done && m_free_names.size() == m_names.size() && m_output.empty()) break;
      for (const exchange_engine::finished& done : m_engine.wait(next_wake(now))) ended(done);
      take_resolved();
    }
    // After a stop signal: what may be written by now, and nothing more.
    const bool written = m_output.write_finished();
    return {written, m_output.resume_line()};
  }

  void summarize(run_summary& summary) const {
    summary.count_strays(m_engine.strays());
    summary.set_resolution(m_queries, m_registry.size(), m_cache.hits());
  }

 private:
  void admit(clock::time_point now) {
    while (!m_input_done && !m_free_names.empty() && m_output.has_room() && interrupt_signal() == 0) {
      const std::size_t index = m_free_names.back();
      name_slot& slot = m_names[index];
      if (!m_next(slot.name)) {
        m_input_done = true;
        return;
      }
      m_free_names.pop_back();
      slot.sequence = m_output.start();
      // A name that cannot be built, and every name when a negative retry count switches the
      // queries off, is done at once.
      if (!slot.name.built || m_config.retry < 0) {
        std::vector<finished_attempt> none;
        m_output.finish(slot.sequence, slot.name, none);
        m_free_names.push_back(index);
        m_finished_outside = true;
        continue;
      }
      m_resolver.start(index, slot.name.query, now);
    }
  }

  // The resolver's queries go out while there is room on the wire (and -qps allows), each to
  // the best server of those it may go to.
  void dispatch(clock::time_point now) {
    while (!m_free_exchanges.empty() && interrupt_signal() == 0) {
      const auto waiting = m_resolver.next_query();
      if (!waiting) return;
      if (m_extras.pacer) {
        if (now < m_extras.pacer->next_send()) return;
        m_extras.pacer->sent(now);
      }
      learn_servers(now);
      const std::uint32_t e = m_free_exchanges.back();
      m_free_exchanges.pop_back();
      exchange_slot& x = m_exchanges[e];
      x.query = waiting->id;
      x.server = waiting->fixed ? *waiting->fixed : m_pool.choose_among(waiting->servers, waiting->tried);
      x.sent = *waiting->query;
      x.transaction.clear();
      const bool over_tcp = waiting->over_tcp || m_config.tcp_only != 0;
      m_resolver.sending(waiting->id);
      x.ticket = m_pool.sent(x.server, now);
      m_engine.renew(e);
      m_engine.submit(e, x.server, x.sent, x.transaction, over_tcp);
      ++m_queries;
    }
  }

  // Servers the resolver has met since: the wire and the pool learn of them too.
  void learn_servers(clock::time_point now) {
    while (m_engine.servers() < m_registry.size()) {
      m_engine.add_server(address_at(m_registry.address(m_engine.servers()), m_config.port));
      m_pool.add(now);
    }
  }

  void ended(const exchange_engine::finished& done) {
    exchange_slot& x = m_exchanges[done.id];
    const clock::time_point now = clock::now();
    const attempt_result result = result_of(x.transaction, x.sent, done.answered);
    m_pool.ended(x.server, x.ticket, fate_of(x.transaction, result), now,
                 std::chrono::microseconds(std::max<std::int64_t>(x.transaction.round_trip_us, 0)),
                 result.rcode.value_or(0));
    m_resolver.attempt_ended(x.query, x.server, x.sent, std::move(x.transaction), done.answered, now);
    x.transaction.clear();
    m_free_exchanges.push_back(done.id);
  }

  void take_resolved() {
    while (auto resolved = m_resolver.next_resolved()) {
      const std::size_t index = static_cast<std::size_t>(resolved->token);
      name_slot& slot = m_names[index];
      std::vector<finished_attempt> attempts;
      attempts.push_back({std::move(resolved->report.query), std::move(resolved->report.transaction), resolved->answered});
      const std::string members = m_config.json_names ? resolution_members(*resolved, m_config.trace != 0) : "";
      const resolution_note note{resolved->reason, members};
      m_output.finish(slot.sequence, slot.name, attempts, &note);
      m_free_names.push_back(index);
      m_finished_outside = true;
    }
  }

  // The earliest of what the loop waits for besides the wire: a name's -name_timeout_ms, the
  // -qps slot of a query waiting to be sent.
  std::optional<clock::time_point> next_wake(clock::time_point now) {
    if (std::exchange(m_finished_outside, false)) return now;
    std::optional<clock::time_point> next = m_resolver.next_deadline();
    if (m_extras.pacer && m_resolver.next_query() && !m_free_exchanges.empty()) {
      const clock::time_point slot = m_extras.pacer->next_send();
      if (!next || slot < *next) next = slot;
    }
    return next;
  }

  input_params& m_config;
  const query_source& m_next;
  const run_extras& m_extras;
  run_progress& m_progress;
  ordered_output m_output;
  server_registry m_registry;
  std::vector<std::size_t> m_roots;
  resolver_cache m_cache;
  iterative_resolver m_resolver;
  std::vector<name_slot> m_names;
  std::vector<std::size_t> m_free_names;
  std::vector<exchange_slot> m_exchanges;
  std::vector<std::uint32_t> m_free_exchanges;
  exchange_engine m_engine;
  server_pool m_pool;
  std::uint64_t m_queries = 0;
  bool m_input_done = false;
  bool m_finished_outside = false;
};

}  // namespace

bulk_result run_iterative(std::ostream& out, input_params& config, const query_source& next,
                          const run_extras& extras, run_progress& progress, name_outcome& worst,
                          std::uint64_t lines_before) {
  iterative_scheduler scheduler(out, config, next, extras, progress, worst, lines_before);
  const bulk_result result = scheduler.run();
  if (extras.summary) scheduler.summarize(*extras.summary);
  return result;
}
