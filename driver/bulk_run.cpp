#include "driver/bulk_run.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <utility>
#include <cstdint>
#include <vector>

#include "dns/query_builder.h"
#include "driver/hold_queue.h"
#include "driver/output_file.h"
#include "net/event_loop.h"
#include "net/interrupt.h"
#include "net/reply_matcher.h"
#include "net/server_address.h"
#include "net/tcp_exchange.h"
#include "net/udp_pool.h"
#include "report/attempt_report.h"
#include "report/json_writer.h"
#include "report/name_object_writer.h"
#include "report/stream_format.h"
#include "report/table_writer.h"
#include "time/clock.h"

namespace {

using clock = std::chrono::steady_clock;

// Shared sockets: a socket holds at most one waiting query per ID, and queries draw their IDs
// from 90 numbers, so a run starts with a few more sockets than the in-flight count needs on
// average, at least two (a name's next attempt goes out from another socket than its last), and
// opens more when an ID is taken on every one.
constexpr std::size_t k_ids = 90;
// Descriptors the run needs besides its sockets: standard streams, the results file, the stop
// signal's pipe, an attempt's own socket, the event loop, and some room for the C library.
constexpr rlim_t k_spare_descriptors = 16;

// Event tokens: a shared socket's number, or one of these bits and the slot of an attempt that
// has a socket of its own (UDP) or a connection (TCP).
constexpr std::uint64_t k_own_socket = std::uint64_t{1} << 63;
constexpr std::uint64_t k_connection = std::uint64_t{1} << 62;
constexpr std::uint64_t k_slot_bits = k_connection - 1;

std::size_t pool_size(std::size_t in_flight) { return std::max<std::size_t>(2, (in_flight + k_ids - 1) / k_ids + 2); }

// Raises the soft limit on descriptors as far as `wanted` sockets need (the hard limit permitting).
void make_room_for(std::size_t wanted) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t needed = static_cast<rlim_t>(wanted) + k_spare_descriptors;
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= needed) return;
  limit.rlim_cur = limit.rlim_max == RLIM_INFINITY ? needed : std::min(needed, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

// A first-in first-out list of slots that can also drop a slot from its middle. Every attempt
// waits the same time and every pause lasts the same time, so the order slots enter is the
// order their time runs out: the front is always the next one due.
class slot_fifo {
 public:
  explicit slot_fifo(std::size_t slots) : m_prev(slots, k_none), m_next(slots, k_none) {}
  bool empty() const { return m_head == k_none; }
  std::size_t front() const { return m_head; }
  void push(std::size_t slot) {
    m_prev[slot] = m_tail;
    m_next[slot] = k_none;
    (m_tail == k_none ? m_head : m_next[m_tail]) = slot;
    m_tail = slot;
  }
  void remove(std::size_t slot) {
    (m_prev[slot] == k_none ? m_head : m_next[m_prev[slot]]) = m_next[slot];
    (m_next[slot] == k_none ? m_tail : m_prev[m_next[slot]]) = m_prev[slot];
  }

 private:
  static constexpr std::size_t k_none = SIZE_MAX;
  std::vector<std::size_t> m_prev;
  std::vector<std::size_t> m_next;
  std::size_t m_head = k_none;
  std::size_t m_tail = k_none;
};

// One name on its way: queued to send, waiting for its reply, pausing before its next attempt.
struct flight {
  enum class state { free, queued, waiting, pausing };
  state now = state::free;
  bool over_tcp = false;               // the attempt in flight (or next) goes over TCP
  std::int32_t counted = 0;            // attempts that count against -retry (not a TC's follow-up)
  std::uint64_t sequence = 0;          // its place in the hold queue
  name_entry name;                     // its query is the one sent
  dns_packet_transaction transaction;  // the attempt in flight
  std::vector<finished_attempt> attempts;
  clock::time_point due{};             // end of the wait or of the pause
  qv::socket own;                      // the attempt's own socket, when it went out alone
  tcp_exchange connection;             // the attempt's connection, over TCP
  int shared = -1;                     // the shared socket it waits on, or -1
  int last_shared = -1;                // the shared socket of its last attempt
};

class bulk_scheduler {
 public:
  bulk_scheduler(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
                 run_progress& progress, name_outcome& worst, std::uint64_t lines_before)
      : m_out(out), m_config(config), m_next(next), m_extras(extras), m_progress(progress), m_worst(worst),
        m_slots(static_cast<std::size_t>(config.inflight)), m_queued(m_slots.size()), m_waiting(m_slots.size()),
        m_pausing(m_slots.size()), m_wait(wait_of(config)),
        m_pause(std::chrono::seconds(static_cast<unsigned>(config.delay))),
        m_hold(!config.unordered, static_cast<std::size_t>(config.hold_mb) << 20, lines_before),
        m_server(server_of(config)),
        m_heading_pending(config.heading_pending != 0 && config.table_report()) {
    // Names are rendered before their turn to be written: the heading is put in front of the
    // run's first name here, never by a row writer.
    m_config.heading_pending = 0;
    for (std::size_t i = m_slots.size(); i-- > 0;) m_free.push_back(i);
    const std::size_t sockets = pool_size(m_slots.size());
    make_room_for(sockets * 2);
    m_pool.open(m_server, sockets);
    for (std::size_t i = 0; i < m_pool.size(); ++i) m_loop.watch(m_pool.descriptor(i), i, interest::read);
    m_matcher.set_sockets(m_pool.size());
  }

  bulk_result run() {
    while (write_finished() && interrupt_signal() == 0) {
      m_progress.tick();
      admit();
      send_queued();
      if (m_input_done && m_free.size() == m_slots.size() && m_hold.empty()) break;
      collect(m_loop.wait(wait_timeout_ms()));
    }
    // After a stop signal: what may be written by now, and nothing more.
    const bool written = write_finished();
    return {written, m_hold.resume_line()};
  }

  std::uint64_t strays() const { return m_strays; }

 private:
  static clock::duration wait_of(const input_params& config) {
    const int ms = attempt_wait_ms(config);
    return ms < 0 ? clock::duration::max() / 2 : std::chrono::milliseconds(ms);
  }

  // New names start while a slot is free and the held reports leave room: a slow name holds
  // back the output, not the names after it.
  void admit() {
    while (!m_input_done && !m_free.empty() && m_hold.has_room() && interrupt_signal() == 0) {
      const std::size_t index = m_free.back();
      flight& f = m_slots[index];
      if (!m_next(f.name)) {
        m_input_done = true;
        return;
      }
      m_free.pop_back();
      f.sequence = m_hold.start();
      f.last_shared = -1;
      f.counted = 0;
      f.over_tcp = m_config.tcp_only != 0;
      // A name that cannot be built, and every name when a negative retry count switches the
      // queries off, is done at once: silently, or for the bad name its JSON object.
      if (!f.name.built || m_config.retry < 0) {
        complete(index);
        continue;
      }
      f.now = flight::state::queued;
      m_queued.push(index);
    }
  }

  // Every queued name whose turn has come (-qps) goes out: alone, when nothing else is waiting,
  // from a socket of its own as one at a time would; otherwise from a shared socket, in batches.
  void send_queued() {
    m_batch.clear();
    while (!m_queued.empty() && interrupt_signal() == 0) {
      const clock::time_point now = clock::now();
      if (m_extras.pacer) {
        if (now < m_extras.pacer->next_send()) break;
        m_extras.pacer->sent(now);
      }
      const std::size_t index = m_queued.front();
      m_queued.remove(index);
      if (m_slots[index].over_tcp)
        send_over_tcp(index, now);
      else if (m_waiting_count == 0 && m_batch.empty())
        send_alone(index, now);
      else
        m_batch.push_back(index);
    }
    send_batch();
  }

  // A connection of its own; it may be refused at once, and then the attempt is over.
  void send_over_tcp(std::size_t index, clock::time_point now) {
    flight& f = m_slots[index];
    f.connection = start_tcp_query(f.transaction, f.name.query, m_server);
    if (f.connection.want() == tcp_want::done || !watch_connection(index)) {
      finish_attempt(index, now);
      return;
    }
    start_waiting(index, now);
  }

  bool watch_connection(std::size_t index) {
    const tcp_exchange& c = m_slots[index].connection;
    return m_loop.watch(c.descriptor(), k_connection | index,
                        c.want() == tcp_want::write ? interest::write : interest::read);
  }

  void send_alone(std::size_t index, clock::time_point now) {
    flight& f = m_slots[index];
    f.own = send_query(f.transaction, f.name.query, m_server);
    const int descriptor = static_cast<int>(f.own.descriptor());
    if (descriptor == -1 || !m_loop.watch(descriptor, k_own_socket | index, interest::read)) {
      f.own.close();
      finish_attempt(index, now);  // "sock err"
      return;
    }
    start_waiting(index, now);
  }

  // In queue order, which is input order for first attempts: consecutive queries that go out
  // from one socket go in one call, and the order in which they leave is the order of the queue.
  void send_batch() {
    m_run.clear();
    std::size_t run_socket = 0;
    for (const std::size_t index : m_batch) {
      flight& f = m_slots[index];
      prepare(f);
      const auto socket = shared_socket_for(f);
      if (!socket) {
        finish_attempt(index, clock::now());  // no socket to be had: "sock err"
        continue;
      }
      if (*socket != run_socket) send_run(run_socket);
      run_socket = *socket;
      m_current_socket = *socket;
      f.shared = static_cast<int>(*socket);
      m_matcher.add(static_cast<reply_matcher::attempt_id>(index), *socket, f.transaction.sent);
      m_run.push_back(index);
    }
    send_run(run_socket);
  }

  void send_run(std::size_t socket) {
    if (m_run.empty()) return;
    m_messages.clear();
    for (const std::size_t index : m_run) m_messages.push_back({m_slots[index].transaction.sent, false});
    m_pool.send(socket, m_messages);
    const clock::time_point now = clock::now();
    for (std::size_t i = 0; i < m_run.size(); ++i) {
      flight& f = m_slots[m_run[i]];
      if (m_messages[i].sent) {
        f.transaction.sent_length = static_cast<std::uint32_t>(f.transaction.sent.size());
        start_waiting(m_run[i], now);
      } else {
        m_matcher.forget(socket, f.transaction.sent);
        f.shared = -1;
        finish_attempt(m_run[i], now);  // "sock err"
      }
    }
    m_run.clear();
  }

  // A shared socket on which the query's ID is free, not the one of the name's last attempt (so
  // a late reply to that attempt cannot be taken for this one), the one in use when it can be;
  // a new socket when every one holds the ID.
  std::optional<std::size_t> shared_socket_for(const flight& f) {
    if (const auto socket = m_matcher.free_socket(f.transaction.sent, f.last_shared, m_current_socket)) return socket;
    if (!m_pool.grow()) return std::nullopt;
    const std::size_t added = m_pool.size() - 1;
    m_loop.watch(m_pool.descriptor(added), added, interest::read);
    m_matcher.set_sockets(m_pool.size());
    return added;
  }

  // The attempt's bookkeeping before its query goes out on a shared socket, as send_query()
  // does it for a socket of the attempt's own.
  void prepare(flight& f) {
    f.transaction.clear();
    f.name.query.timestamp = now_timestamp();
    f.name.query.server = m_server.text();
    f.transaction.sent = f.name.query.packet;
  }

  void start_waiting(std::size_t index, clock::time_point now) {
    flight& f = m_slots[index];
    f.now = flight::state::waiting;
    f.due = now + m_wait;
    m_waiting.push(index);
    ++m_waiting_count;
  }

  // The attempt is over, by a reply, a time-out or a failed send: it is kept for the report,
  // and the name goes on to its next attempt or is done. `answered` is what a UDP reply said;
  // a TCP attempt says it here, from what its connection got.
  void finish_attempt(std::size_t index, clock::time_point now, bool answered = false) {
    flight& f = m_slots[index];
    if (f.now == flight::state::waiting) {
      m_waiting.remove(index);
      --m_waiting_count;
      if (f.shared >= 0) {
        m_matcher.forget(static_cast<std::size_t>(f.shared), f.transaction.sent);
        f.last_shared = f.shared;
        f.shared = -1;
      } else {
        m_loop.forget(f.over_tcp ? f.connection.descriptor() : static_cast<int>(f.own.descriptor()), true);
      }
    }
    if (f.over_tcp) {
      answered = finish_tcp_query(f.transaction, f.name.query, m_server, f.connection);
      f.connection.close();
    }
    f.own.close();  // before any row is written, as one at a time
    const bool follow_up = f.over_tcp && !m_config.tcp_only;
    if (!follow_up) ++f.counted;
    // With -tcp a truncated reply is followed at once by one attempt over TCP, which does not
    // count against -retry and has no pause before it.
    const bool truncated = !f.over_tcp && m_config.tcp && !m_config.tcp_only &&
                           truncated_reply(f.transaction, f.name.query);
    f.attempts.push_back({f.name.query, std::move(f.transaction), answered});
    f.transaction.clear();
    f.over_tcp = m_config.tcp_only != 0 || truncated;
    const bool more = truncated || (!answered && f.counted <= m_config.retry);
    if (!more) {
      complete(index);
    } else if (!truncated && m_pause.count() != 0) {
      f.now = flight::state::pausing;  // -delay: before this name's next attempt only
      f.due = now + m_pause;
      m_pausing.push(index);
    } else {
      f.now = flight::state::queued;
      m_queued.push(index);
    }
  }

  // The name is done: its report is made now, through the same steps as one at a time, and
  // held until its turn; its slot is free for the next name.
  void complete(std::size_t index) {
    flight& f = m_slots[index];
    rendered_name name;
    name.line = f.name.line;
    name.input_end = f.name.input_end;
    name.outcome = name_outcome::no_reply;
    m_render.clear();
    if (!f.name.built) {
      write_bad_name(m_render.stream(), m_config, f.name);
      // Its -why_columns row is the name's report: the heading goes before it, if it is first.
      name.asked = name.rows_first = m_config.why_columns != 0;
    } else if (!f.attempts.empty()) {
      const name_report report =
          report_name(m_render.stream(), f.attempts, m_config, &name.tally, {f.name.line, f.name.asked, {}});
      name.asked = true;
      name.rows_first = report.rows_first;
      name.outcome = report.outcome;
    }
    name.bytes.assign(m_render.text());
    m_hold.finish(f.sequence, std::move(name));
    f.attempts.clear();
    f.now = flight::state::free;
    m_free.push_back(index);
    m_finished_since_wait = true;
  }

  int wait_timeout_ms() {
    // A name finished outside a wait (a failed send, a bad name) may be writable at once, and
    // its slot may take the next name.
    if (std::exchange(m_finished_since_wait, false)) return 0;
    const clock::time_point now = clock::now();
    clock::time_point until = clock::time_point::max();
    if (!m_waiting.empty()) until = std::min(until, m_slots[m_waiting.front()].due);
    if (!m_pausing.empty()) until = std::min(until, m_slots[m_pausing.front()].due);
    if (!m_queued.empty()) until = std::min(until, m_extras.pacer ? m_extras.pacer->next_send() : now);
    if (until == clock::time_point::max()) return -1;
    if (until <= now) return 0;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
    return static_cast<int>(std::min<long long>(left, INT32_MAX));
  }

  // Replies first, then time-outs: an attempt whose reply was not read when the wait ended,
  // and whose time had run out by then, got no reply in time.
  void collect(std::span<const ready_event> ready) {
    const clock::time_point now = clock::now();
    for (const ready_event& event : ready) {
      const std::size_t index = static_cast<std::size_t>(event.token & k_slot_bits);
      if ((event.token & k_own_socket) != 0) {
        flight& f = m_slots[index];
        if (f.now != flight::state::waiting || f.shared >= 0 || f.over_tcp) continue;
        finish_attempt(index, now, take_reply(f.transaction, f.name.query, &m_server.text(), f.own));
      } else if ((event.token & k_connection) != 0) {
        flight& f = m_slots[index];
        if (f.now != flight::state::waiting || !f.over_tcp) continue;
        // The connection goes as far as it can; it may want the other direction next.
        if (f.connection.step() == tcp_want::done || !watch_connection(index)) finish_attempt(index, now);
      } else {
        read_shared(index, now);
      }
    }
    while (!m_waiting.empty() && m_slots[m_waiting.front()].due <= now) finish_attempt(m_waiting.front(), now);
    while (!m_pausing.empty() && m_slots[m_pausing.front()].due <= now) {
      const std::size_t index = m_pausing.front();
      m_pausing.remove(index);
      m_slots[index].now = flight::state::queued;
      m_queued.push(index);
    }
  }

  void read_shared(std::size_t socket, clock::time_point now) {
    const auto query_of = [this](reply_matcher::attempt_id a) -> std::span<const std::uint8_t> {
      return m_slots[a].transaction.sent;
    };
    // Until a batch comes back short: the socket then held no more (the loop reports it again
    // when more arrives), and one more call would only say so.
    for (bool more = true; more;) {
      const auto batch = m_pool.receive(socket);
      more = batch.size() == udp_pool::batch_size();
      for (const std::span<const std::uint8_t> datagram : batch) {
        // One at a time an empty datagram counts as nothing received (a "timeout" row); here it
        // answers nobody, and the attempt's time runs out to the same row.
        if (datagram.empty()) continue;
        const auto found = m_matcher.find(socket, datagram, query_of);
        if (!found) {
          ++m_strays;
          continue;
        }
        flight& f = m_slots[*found];
        finish_attempt(*found, now, accept_reply(f.transaction, f.name.query, &m_server.text(), datagram));
      }
    }
  }

  // Every name that may be written now, through one flush. The heading goes in front of the
  // first name that was asked, when its first attempt wrote rows, as one at a time.
  bool write_finished() {
    if (m_output_failed) return false;
    bool any = false;
    m_hold.drain([&](rendered_name& name) {
      if (!any) errno = 0;
      any = true;
      if (m_heading_pending && name.asked) {
        if (name.rows_first) write_table_heading(m_out, m_config);
        m_heading_pending = false;
      }
      m_out.write(name.bytes.data(), static_cast<std::streamsize>(name.bytes.size()));
      if (m_extras.summary) m_extras.summary->add(name.tally);
      m_worst = std::max(m_worst, name.outcome);
      m_progress.input_done(name.input_end);
    });
    if (!any) return true;
    m_output_failed = output_failed(m_out);
    return !m_output_failed;
  }

  std::ostream& m_out;
  input_params& m_config;
  const query_source& m_next;
  const run_extras& m_extras;
  run_progress& m_progress;
  name_outcome& m_worst;
  std::vector<flight> m_slots;
  std::vector<std::size_t> m_free;
  slot_fifo m_queued;
  slot_fifo m_waiting;
  slot_fifo m_pausing;
  std::size_t m_waiting_count = 0;
  const clock::duration m_wait;
  const clock::duration m_pause;
  hold_queue m_hold;
  const server_address m_server;
  bool m_heading_pending;
  event_loop m_loop;
  udp_pool m_pool;
  reply_matcher m_matcher;
  std::vector<std::size_t> m_batch;
  std::vector<std::size_t> m_run;  // the queries going out from one socket in one call
  std::size_t m_current_socket = 0;
  std::vector<udp_pool::outgoing> m_messages;
  std::uint64_t m_strays = 0;
  report_row m_render;
  bool m_input_done = false;
  bool m_output_failed = false;
  bool m_finished_since_wait = false;
};

}  // namespace

void write_bad_name(std::ostream& out, input_params& config, const name_entry& name) {
  const std::string_view fault = name_fault(name.asked, query_settings_of(config));
  if (config.json) write_json_bad_name(out, name.line, name.asked, fault);
  if (config.json_names) write_json_name(out, {name.line, name.asked, nullptr, nullptr, 0, k_outcome_bad_name, fault}, config);
  if (config.why_columns && !config.json && !config.json_names) {
    const auto type = config.asked_type.value_or(static_cast<std::uint16_t>(config.query_type));
    report_bad_name(out, config, type, {name.line, name.asked, k_outcome_bad_name});
  }
}

bulk_result run_bulk(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
                     run_progress& progress, name_outcome& worst, std::uint64_t lines_before) {
  bulk_scheduler scheduler(out, config, next, extras, progress, worst, lines_before);
  const bulk_result result = scheduler.run();
  if (extras.summary) extras.summary->count_strays(scheduler.strays());
  return result;
}
