#include "driver/bulk_run.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <vector>

#include "dns/query_builder.h"
#include "driver/error_printer.h"
#include "driver/output_file.h"
#include "net/event_loop.h"
#include "net/interrupt.h"
#include "report/json_writer.h"

namespace {

using clock = std::chrono::steady_clock;

// Descriptors the run needs besides one socket per name in flight: standard streams, the
// results file, the stop signal's pipe, and some room for the C library.
constexpr rlim_t k_spare_descriptors = 16;

// Raises the soft limit on descriptors as far as `wanted` names need; if the hard limit is
// in the way, the run goes on with fewer names in flight and says so once.
std::size_t allowed_in_flight(std::size_t wanted) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return wanted;
  const rlim_t needed = static_cast<rlim_t>(wanted) + k_spare_descriptors;
  if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < needed) {
    rlimit raised = limit;
    raised.rlim_cur = limit.rlim_max == RLIM_INFINITY ? needed : std::min(needed, limit.rlim_max);
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  }
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= needed) return wanted;
  const std::size_t allowed =
      limit.rlim_cur > k_spare_descriptors + 1 ? static_cast<std::size_t>(limit.rlim_cur - k_spare_descriptors) : 1;
  print_error("inflight lowered to %zu: the open file limit is %llu\n", allowed,
              static_cast<unsigned long long>(limit.rlim_cur));
  return allowed;
}

// A first-in first-out list of ring slots that can also drop a slot from its middle. Every
// attempt waits the same time and every pause lasts the same time, so the order slots enter
// is the order their time runs out: the front is always the next one due.
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

// An attempt as it will be reported: the query as sent (its time and server) and what came back.
struct finished_attempt {
  DNS_RES_RECORD query;
  dns_packet_transaction transaction;
  bool answered = false;
};

// One name's life: queued to send, waiting for its reply, pausing before the next attempt,
// then done and waiting for the names before it to be written.
struct name_slot {
  enum class state { free, queued, waiting, pausing, done };
  state now = state::free;
  name_entry name;                     // its query is the one sent
  dns_packet_transaction transaction;  // the attempt in flight
  qv::socket link;
  clock::time_point due{};             // end of the wait or of the pause
  std::vector<finished_attempt> attempts;
};

class bulk_scheduler {
 public:
  bulk_scheduler(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
                 run_progress& progress, name_outcome& worst)
      : m_out(out), m_config(config), m_next(next), m_extras(extras), m_progress(progress), m_worst(worst),
        m_ring(allowed_in_flight(static_cast<std::size_t>(config.inflight))), m_queued(m_ring.size()),
        m_waiting(m_ring.size()), m_pausing(m_ring.size()), m_wait(wait_of(config)),
        m_pause(std::chrono::seconds(static_cast<unsigned>(config.delay))) {}

  bool run() {
    // Writing first frees ring slots for the names admitted next.
    while (write_finished() && interrupt_signal() == 0) {
      m_progress.tick();
      admit();
      send_queued();
      if (m_input_done && m_written == m_started) return true;
      collect(m_loop.wait(wait_timeout_ms()));
    }
    return !m_output_failed && write_finished();
  }

 private:
  static clock::duration wait_of(const input_params& config) {
    const int ms = attempt_wait_ms(config);
    return ms < 0 ? clock::duration::max() / 2 : std::chrono::milliseconds(ms);
  }

  name_slot& slot_of(std::uint64_t sequence) { return m_ring[sequence % m_ring.size()]; }
  std::size_t index_of(std::uint64_t sequence) const { return sequence % m_ring.size(); }

  // New names start only while the ring has room: a name that takes long holds back the ones
  // after it, and memory stays bounded by the ring whatever the input's length.
  void admit() {
    while (!m_input_done && m_started - m_written < m_ring.size() && interrupt_signal() == 0) {
      name_slot& slot = slot_of(m_started);
      if (!m_next(slot.name)) {
        m_input_done = true;
        break;
      }
      // A name that cannot be built, and every name when a negative retry count switches the
      // queries off, is done at once: silently, or for the bad name its JSON object.
      const bool asked = slot.name.built && m_config.retry >= 0;
      slot.now = asked ? name_slot::state::queued : name_slot::state::done;
      if (slot.now == name_slot::state::queued) m_queued.push(index_of(m_started));
      ++m_started;
    }
  }

  void send_queued() {
    while (!m_queued.empty() && interrupt_signal() == 0) {
      const clock::time_point now = clock::now();
      if (m_extras.pacer) {
        if (now < m_extras.pacer->next_send()) return;
        m_extras.pacer->sent(now);
      }
      const std::size_t index = m_queued.front();
      m_queued.remove(index);
      start_attempt(index, now);
    }
  }

  void start_attempt(std::size_t index, clock::time_point now) {
    name_slot& slot = m_ring[index];
    slot.link = send_query(slot.transaction, slot.name.query, &m_config.server, m_config.port);
    const int descriptor = static_cast<int>(slot.link.descriptor());
    if (descriptor == -1) {
      finish_attempt(index, false, now);  // "sock err"
      return;
    }
    if (static_cast<std::size_t>(descriptor) >= m_slot_of_descriptor.size())
      m_slot_of_descriptor.resize(static_cast<std::size_t>(descriptor) + 1);
    m_slot_of_descriptor[static_cast<std::size_t>(descriptor)] = index;
    m_loop.watch(descriptor);
    slot.now = name_slot::state::waiting;
    slot.due = now + m_wait;
    m_waiting.push(index);
  }

  // The attempt is over, by a reply, a time-out or a failed send: it is kept for the report,
  // and the name goes on to its next attempt or is done.
  void finish_attempt(std::size_t index, bool answered, clock::time_point now) {
    name_slot& slot = m_ring[index];
    if (slot.now == name_slot::state::waiting) {
      m_loop.forget(static_cast<int>(slot.link.descriptor()));
      m_waiting.remove(index);
    }
    slot.link.close();  // before any row is written, as in the sequential run
    slot.attempts.push_back({slot.name.query, std::move(slot.transaction), answered});
    slot.transaction.clear();
    const bool more = !answered && slot.attempts.size() <= static_cast<std::size_t>(m_config.retry);
    if (!more) {
      slot.now = name_slot::state::done;
    } else if (m_pause.count() != 0) {
      slot.now = name_slot::state::pausing;  // -delay: before this name's next attempt only
      slot.due = now + m_pause;
      m_pausing.push(index);
    } else {
      slot.now = name_slot::state::queued;
      m_queued.push(index);
    }
  }

  int wait_timeout_ms() const {
    // A failed send finishes an attempt without any event to wait for: then the next round
    // writes that name and admits the next ones at once.
    const bool head_done = m_written < m_started && m_ring[index_of(m_written)].now == name_slot::state::done;
    if (head_done || (!m_input_done && m_started - m_written < m_ring.size())) return 0;
    const clock::time_point now = clock::now();
    clock::time_point until = clock::time_point::max();
    if (!m_waiting.empty()) until = std::min(until, m_ring[m_waiting.front()].due);
    if (!m_pausing.empty()) until = std::min(until, m_ring[m_pausing.front()].due);
    if (!m_queued.empty()) until = std::min(until, m_extras.pacer ? m_extras.pacer->next_send() : now);
    if (until == clock::time_point::max()) return -1;
    if (until <= now) return 0;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
    return static_cast<int>(std::min<long long>(left, INT32_MAX));
  }

  // Replies first, then time-outs: an attempt whose socket was not readable when the wait
  // ended, and whose time had run out by then, got no reply in time.
  void collect(const std::vector<int>& ready) {
    const clock::time_point now = clock::now();
    for (const int descriptor : ready) {
      const std::size_t index = m_slot_of_descriptor[static_cast<std::size_t>(descriptor)];
      name_slot& slot = m_ring[index];
      const bool answered = take_reply(slot.transaction, slot.name.query, &m_config.server, slot.link);
      finish_attempt(index, answered, now);
    }
    while (!m_waiting.empty() && m_ring[m_waiting.front()].due <= now) finish_attempt(m_waiting.front(), false, now);
    while (!m_pausing.empty() && m_ring[m_pausing.front()].due <= now) {
      const std::size_t index = m_pausing.front();
      m_pausing.remove(index);
      m_ring[index].now = name_slot::state::queued;
      m_queued.push(index);
    }
  }

  // Every name that is done and has no unfinished name before it, in input order, through
  // the same reporting as the sequential run; then one flush for all of them.
  bool write_finished() {
    if (m_output_failed) return false;
    if (m_written == m_started || slot_of(m_written).now != name_slot::state::done) return true;
    errno = 0;
    while (m_written < m_started && slot_of(m_written).now == name_slot::state::done) {
      name_slot& slot = slot_of(m_written);
      write_name(slot);
      slot.attempts.clear();
      slot.now = name_slot::state::free;
      ++m_written;
    }
    m_output_failed = output_failed(m_out);
    return !m_output_failed;
  }

  // What the sequential run writes for the name, and its outcome: the last attempt decides.
  void write_name(name_slot& slot) {
    const name_entry& name = slot.name;
    if (!name.built) {
      m_worst = std::max(m_worst, name_outcome::no_reply);
      if (m_config.json) write_json_bad_name(m_out, name.line, name.asked, name_fault(name.asked));
      return;
    }
    if (slot.attempts.empty()) {  // queries switched off
      m_worst = std::max(m_worst, name_outcome::no_reply);
      return;
    }
    const query_origin origin{name.line, name.asked};
    std::int32_t number = 0;
    name_tally tally;
    for (finished_attempt& attempt : slot.attempts)
      report_attempt(m_out, attempt.transaction, attempt.query, m_config, &tally, origin, ++number);
    if (m_extras.summary) m_extras.summary->add(tally);
    const finished_attempt& last = slot.attempts.back();
    m_worst = std::max(m_worst, classify_attempt(last.transaction, last.answered));
  }

  std::ostream& m_out;
  input_params& m_config;
  const query_source& m_next;
  const run_extras& m_extras;
  run_progress& m_progress;
  name_outcome& m_worst;
  std::vector<name_slot> m_ring;
  slot_fifo m_queued;
  slot_fifo m_waiting;
  slot_fifo m_pausing;
  const clock::duration m_wait;
  const clock::duration m_pause;
  event_loop m_loop;
  std::vector<std::size_t> m_slot_of_descriptor;
  std::uint64_t m_started = 0;  // names taken from the source
  std::uint64_t m_written = 0;  // names whose rows are out; the ring's oldest slot
  bool m_input_done = false;
  bool m_output_failed = false;
};

}  // namespace

bool run_bulk(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
              run_progress& progress, name_outcome& worst) {
  bulk_scheduler scheduler(out, config, next, extras, progress, worst);
  return scheduler.run();
}
