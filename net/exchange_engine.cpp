#include "net/exchange_engine.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "net/query_transaction.h"

namespace {

// Shared sockets: a socket holds at most one waiting query per ID and server, and queries draw
// their IDs from 90 numbers, so a family's first use opens a few more sockets than the in-flight
// count needs for one server, at least two (an exchange's next attempt goes out from another
// socket than its last); more open when an ID is taken on every one.
constexpr std::size_t k_ids = 90;
// Descriptors the run needs besides its sockets: standard streams, the results file, the stop
// signal's pipe, an attempt's own socket, the event loop, and some room for the C library.
constexpr rlim_t k_spare_descriptors = 16;
// Batches read from one socket per wake-up: 256 datagrams, then time-outs and sends get their
// turn; the loop comes back at once for the rest.
constexpr int k_batches_per_wake = 8;

// Event tokens: a shared socket's number, or one of these bits and the exchange of an attempt
// that has a socket of its own (UDP) or a connection (TCP).
constexpr std::uint64_t k_own_socket = std::uint64_t{1} << 63;
constexpr std::uint64_t k_connection = std::uint64_t{1} << 62;
constexpr std::uint64_t k_id_bits = k_connection - 1;

std::size_t first_sockets(std::size_t in_flight) { return std::max<std::size_t>(2, (in_flight + k_ids - 1) / k_ids + 2); }

// Raises the soft limit on descriptors as far as `wanted` sockets need (the hard limit permitting).
void make_room_for(std::size_t wanted) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t needed = static_cast<rlim_t>(wanted) + k_spare_descriptors;
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= needed) return;
  limit.rlim_cur = limit.rlim_max == RLIM_INFINITY ? needed : std::min(needed, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

exchange_engine::exchange_engine(std::vector<server_address> servers, std::size_t capacity,
                                 std::chrono::milliseconds wait)
    : m_exchanges(capacity),
      m_wait(wait.count() < 0 ? clock::duration::max() / 2 : clock::duration(wait)) {
  for (const server_address& s : servers) add_server(s);
  make_room_for(first_sockets(capacity) * 2);
}

std::size_t exchange_engine::add_server(const server_address& server) {
  m_servers.push_back(server);
  m_index.add(server, m_servers.size() - 1);
  return m_servers.size() - 1;
}

void exchange_engine::submit(exchange_id id, std::size_t server, DNS_RES_RECORD& query,
                             dns_packet_transaction& transaction, bool over_tcp) {
  exchange& e = m_exchanges[id];
  e.now = exchange::state::queued;
  e.server = server;
  e.query = &query;
  e.transaction = &transaction;
  e.over_tcp = over_tcp;
  m_queue.push_back(id);
}

void exchange_engine::renew(exchange_id id) {
  m_exchanges[id].last_shared = -1;
  m_exchanges[id].last_server = SIZE_MAX;
}

void exchange_engine::send_queued() {
  if (m_blocked) return;
  std::vector<exchange_id> batch;
  while (!m_queue.empty()) {
    const exchange_id id = m_queue.front();
    m_queue.pop_front();
    if (m_exchanges[id].over_tcp)
      send_over_tcp(id);
    else if (m_waiting == 0 && batch.empty())
      send_alone(id);
    else
      batch.push_back(id);
  }
  send_batch(batch);
}

void exchange_engine::send_alone(exchange_id id) {
  exchange& e = m_exchanges[id];
  e.own = send_query(*e.transaction, *e.query, m_servers[e.server]);
  const int descriptor = static_cast<int>(e.own.descriptor());
  if (descriptor == -1 || !m_loop.watch(descriptor, k_own_socket | id, interest::read)) {
    e.own.close();
    finish(id, false);  // "sock err"
    return;
  }
  start_waiting(id);
}

void exchange_engine::send_over_tcp(exchange_id id) {
  exchange& e = m_exchanges[id];
  e.connection = start_tcp_query(*e.transaction, *e.query, m_servers[e.server]);
  if (e.connection.want() == tcp_want::done || !watch_connection(id)) {
    finish(id, false);
    return;
  }
  start_waiting(id);
}

bool exchange_engine::watch_connection(exchange_id id) {
  const tcp_exchange& c = m_exchanges[id].connection;
  return m_loop.watch(c.descriptor(), k_connection | id, c.want() == tcp_want::write ? interest::write : interest::read);
}

// In queue order, which is input order for first attempts: consecutive queries that go out from
// one socket go in one call, and the order in which they leave is the order of the queue. What a
// full socket left unsent goes back to the head of the queue, in order.
void exchange_engine::send_batch(std::vector<exchange_id>& batch) {
  std::vector<exchange_id> run;
  std::vector<exchange_id> unsent;
  std::optional<std::size_t> run_socket;
  for (std::size_t i = 0; i < batch.size(); ++i) {
    const exchange_id id = batch[i];
    exchange& e = m_exchanges[id];
    e.transaction->clear();
    stamp_sending(*e.transaction, *e.query, m_servers[e.server]);
    e.transaction->sent = e.query->packet;
    const auto socket = shared_socket_for(e);
    if (!socket) {
      finish(id, false);  // no socket to be had: "sock err"
      continue;
    }
    if (run_socket && *socket != *run_socket && !send_run(*run_socket, run, unsent)) {
      unsent.insert(unsent.end(), batch.begin() + static_cast<long>(i), batch.end());
      break;
    }
    run_socket = *socket;
    m_current_socket = *socket;
    e.shared = static_cast<int>(*socket);
    m_matcher.add(id, *socket, e.server, e.transaction->sent);
    run.push_back(id);
  }
  if (run_socket && !run.empty()) send_run(*run_socket, run, unsent);
  for (auto it = unsent.rbegin(); it != unsent.rend(); ++it) {
    m_exchanges[*it].now = exchange::state::queued;
    m_queue.push_front(*it);
  }
}

// False when the socket was full: the unsent queries are added to `unsent`, and sending waits
// until it has room.
bool exchange_engine::send_run(std::size_t socket, std::vector<exchange_id>& run, std::vector<exchange_id>& unsent) {
  m_messages.clear();
  for (const exchange_id id : run) {
    const exchange& e = m_exchanges[id];
    m_messages.push_back({e.transaction->sent, &m_servers[e.server]});
  }
  const bool room = m_pool.send(socket, m_messages);
  for (std::size_t i = 0; i < run.size(); ++i) {
    exchange& e = m_exchanges[run[i]];
    switch (m_messages[i].result) {
      case udp_pool::fate::sent:
        e.transaction->sent_length = static_cast<std::uint32_t>(e.transaction->sent.size());
        start_waiting(run[i]);
        break;
      case udp_pool::fate::failed:
        m_matcher.forget(socket, e.server, e.transaction->sent);
        e.shared = -1;
        finish(run[i], false);  // "sock err"
        break;
      case udp_pool::fate::unsent:
        m_matcher.forget(socket, e.server, e.transaction->sent);
        e.shared = -1;
        unsent.push_back(run[i]);
        break;
    }
  }
  run.clear();
  if (!room) {
    m_blocked = socket;
    m_loop.watch(m_pool.descriptor(socket), socket, interest::both);
  }
  return room;
}

// A shared socket of the server's family on which the query's ID is free for that server, not
// the one of the exchange's last attempt to it (so a late reply to that attempt cannot be taken
// for this one), the one in use when it can be; a new socket when every one holds the ID.
std::optional<std::size_t> exchange_engine::shared_socket_for(const exchange& e) {
  const int family = m_servers[e.server].family();
  if (std::find(m_families.begin(), m_families.end(), family) == m_families.end()) {
    m_families.push_back(family);
    for (std::size_t i = 0; i < first_sockets(m_exchanges.size()); ++i)
      if (!add_socket(family)) break;
  }
  const auto of_family = [&](std::size_t socket) { return m_pool.family(socket) == family; };
  const int avoid = e.last_server == e.server ? e.last_shared : -1;
  if (const auto socket = m_matcher.free_socket(m_pool.size(), e.server, e.transaction->sent, avoid,
                                                m_current_socket, of_family))
    return socket;
  if (!add_socket(family)) return std::nullopt;
  return m_pool.size() - 1;
}

bool exchange_engine::add_socket(int family) {
  if (!m_pool.grow(family)) return false;
  const std::size_t added = m_pool.size() - 1;
  m_loop.watch(m_pool.descriptor(added), added, interest::read);
  return true;
}

void exchange_engine::start_waiting(exchange_id id) {
  exchange& e = m_exchanges[id];
  e.now = exchange::state::waiting;
  ++m_waiting;
  m_timers.push(clock::now() + m_wait, {id, ++e.generation});
}

// The attempt is over, by a reply, a time-out or a failed send. `answered` is what a UDP reply
// said; a TCP attempt says it here, from what its connection got.
void exchange_engine::finish(exchange_id id, bool answered) {
  exchange& e = m_exchanges[id];
  if (e.now == exchange::state::waiting) {
    --m_waiting;
    ++e.generation;
    if (e.shared >= 0) {
      m_matcher.forget(static_cast<std::size_t>(e.shared), e.server, e.transaction->sent);
      e.last_shared = e.shared;
      e.shared = -1;
    } else {
      m_loop.forget(e.over_tcp ? e.connection.descriptor() : static_cast<int>(e.own.descriptor()), true);
    }
  }
  if (e.over_tcp) {
    answered = finish_tcp_query(*e.transaction, *e.query, m_servers[e.server], e.connection);
    e.connection.close();
  }
  e.own.close();  // before any row is written, as one at a time
  e.last_server = e.server;
  e.now = exchange::state::idle;
  m_finished.push_back({id, answered});
}

int exchange_engine::wait_timeout_ms(std::optional<clock::time_point> until) {
  // Exchanges that ended without a wait (a failed send) are handed back at once.
  if (!m_finished.empty()) return 0;
  while (!m_timers.empty()) {  // stale timers at the top would wake the loop for nothing
    const timer_token& token = m_timers.top_token();
    const exchange& top = m_exchanges[token.id];
    if (top.now == exchange::state::waiting && top.generation == token.generation) break;
    m_timers.pop();
  }
  std::optional<clock::time_point> next = until;
  if (!m_timers.empty() && (!next || m_timers.next() < *next)) next = m_timers.next();
  if (!next) return -1;
  const clock::time_point now = clock::now();
  if (*next <= now) return 0;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - now).count();
  return static_cast<int>(std::min<long long>(left, INT_MAX));
}

// Replies first, then time-outs: an attempt whose reply was read in this wake-up got it in time.
std::span<const exchange_engine::finished> exchange_engine::wait(std::optional<clock::time_point> until) {
  for (const ready_event& event : m_loop.wait(wait_timeout_ms(until))) {
    const auto id = static_cast<exchange_id>(event.token & k_id_bits);
    if ((event.token & k_own_socket) != 0) {
      exchange& e = m_exchanges[id];
      if (e.now != exchange::state::waiting || e.shared >= 0 || e.over_tcp) continue;
      finish(id, take_reply(*e.transaction, *e.query, &m_servers[e.server].text(), e.own));
    } else if ((event.token & k_connection) != 0) {
      exchange& e = m_exchanges[id];
      if (e.now != exchange::state::waiting || !e.over_tcp) continue;
      // The connection goes as far as it can; it may want the other direction next.
      if (e.connection.step() == tcp_want::done || !watch_connection(id)) finish(id, false);
    } else {
      const auto socket = static_cast<std::size_t>(event.token);
      if (event.writable && m_blocked == socket) {
        m_blocked.reset();
        m_loop.watch(m_pool.descriptor(socket), socket, interest::read);
      }
      if (event.readable) read_shared(socket);
    }
  }
  const clock::time_point now = clock::now();
  while (!m_timers.empty() && m_timers.next() <= now) {
    const timer_token token = m_timers.pop().token;
    const exchange& e = m_exchanges[token.id];
    if (e.now == exchange::state::waiting && e.generation == token.generation) finish(token.id, false);
  }
  m_handed.swap(m_finished);
  m_finished.clear();
  return m_handed;
}

void exchange_engine::read_shared(std::size_t socket) {
  const auto query_of = [this](reply_matcher::attempt_id id) -> std::span<const std::uint8_t> {
    return m_exchanges[id].transaction->sent;
  };
  for (int round = 0; round < k_batches_per_wake; ++round) {
    const auto batch = m_pool.receive(socket);
    for (const udp_pool::incoming& datagram : batch) {
      // One at a time an empty datagram counts as nothing received (a "timeout" row); here it
      // answers nobody, and the attempt's time runs out to the same row.
      if (datagram.bytes.empty()) continue;
      const auto server = m_index.find(datagram.from, datagram.from_size);
      const auto found = server ? m_matcher.find(socket, *server, datagram.bytes, query_of) : std::nullopt;
      if (!found) {
        ++m_strays;
        continue;
      }
      exchange& e = m_exchanges[*found];
      finish(*found, accept_reply(*e.transaction, *e.query, &m_servers[e.server].text(), datagram.bytes));
    }
    if (batch.size() < udp_pool::batch_size()) return;
  }
}
