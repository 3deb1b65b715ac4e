// The wire of a run with many queries in flight, in one thread around one event loop. An
// exchange is one attempt: a query to one of the run's servers and the wait for its reply, over
// UDP from one of a few shared sockets (or from a socket of its own when nothing else is on the
// wire, exactly as one at a time), or over TCP on a connection of its own. What the query is
// for, which server it goes to and what follows is the driver's: it submits exchanges and is
// handed back those that ended, by a reply, a time-out or a failed send.
//
// Replies on shared sockets are matched by their source and ID (net/reply_matcher); a query goes
// out from another socket than the last attempt of the same exchange to the same server, so a
// late reply to that attempt is never taken for this one. Sends that find a socket full wait
// until it is writable; reads take a bounded number of datagrams per wake-up, so a flood of
// replies cannot keep time-outs and sends from their turn.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "dns/dns_record.h"
#include "net/deadline_heap.h"
#include "net/event_loop.h"
#include "net/reply_matcher.h"
#include "net/server_address.h"
#include "net/socket.h"
#include "net/tcp_exchange.h"
#include "net/udp_pool.h"

class exchange_engine {
 public:
  using clock = std::chrono::steady_clock;
  using exchange_id = std::uint32_t;

  struct finished {
    exchange_id id;
    bool answered;  // a reply that parsed and carries the query's ID
  };

  // Exchanges 0 to `capacity` - 1; each waits `wait` for its reply (a negative wait: no limit).
  exchange_engine(std::vector<server_address> servers, std::size_t capacity, std::chrono::milliseconds wait);
  exchange_engine(const exchange_engine&) = delete;
  exchange_engine& operator=(const exchange_engine&) = delete;

  // A server more (a name server an iterative run has just learned of); its index.
  std::size_t add_server(const server_address& server);
  const server_address& server(std::size_t index) const { return m_servers[index]; }
  std::size_t servers() const { return m_servers.size(); }

  // Exchange `id` sends `query`'s packet to `server`, over TCP or UDP, with the next
  // send_queued(); `query` is stamped with the time and server, `transaction` receives what comes
  // back. Both must stay where they are until the exchange has ended.
  void submit(exchange_id id, std::size_t server, DNS_RES_RECORD& query, dns_packet_transaction& transaction,
              bool over_tcp);
  // `id` begins anew (another name takes it): the socket of its last attempt no longer matters.
  void renew(exchange_id id);
  // Sends what is queued, in the order submitted: one alone from a socket of its own, the others
  // from shared sockets, those that leave from one socket in one call.
  void send_queued();
  // Waits for replies, time-outs or room on a full socket, at most until `until` (none: until
  // something happens), and hands back the exchanges that ended since the last call, those
  // that failed to go out included.
  std::span<const finished> wait(std::optional<clock::time_point> until);

  // Exchanges queued or waiting for their reply.
  std::size_t busy() const { return m_queue.size() + m_waiting; }
  std::uint64_t strays() const { return m_strays; }

 private:
  struct exchange {
    enum class state : std::uint8_t { idle, queued, waiting };
    state now = state::idle;
    std::size_t server = 0;
    DNS_RES_RECORD* query = nullptr;
    dns_packet_transaction* transaction = nullptr;
    bool over_tcp = false;
    std::uint32_t generation = 0;  // a timer pushed for an earlier wait is stale
    qv::socket own;                // its own socket, when it went out alone
    tcp_exchange connection;       // its connection, over TCP
    int shared = -1;               // the shared socket it waits on
    int last_shared = -1;          // the shared socket of its last attempt
    std::size_t last_server = SIZE_MAX;
  };
  struct timer_token {
    exchange_id id;
    std::uint32_t generation;
  };

  void send_alone(exchange_id id);
  void send_over_tcp(exchange_id id);
  void send_batch(std::vector<exchange_id>& batch);
  bool send_run(std::size_t socket, std::vector<exchange_id>& run, std::vector<exchange_id>& unsent);
  std::optional<std::size_t> shared_socket_for(const exchange& e);
  bool add_socket(int family);
  void start_waiting(exchange_id id);
  void finish(exchange_id id, bool answered);
  void read_shared(std::size_t socket);
  bool watch_connection(exchange_id id);
  int wait_timeout_ms(std::optional<clock::time_point> until);

  std::vector<server_address> m_servers;
  server_index m_index;
  std::vector<exchange> m_exchanges;
  const clock::duration m_wait;
  std::deque<exchange_id> m_queue;
  std::size_t m_waiting = 0;
  deadline_heap<timer_token> m_timers;
  event_loop m_loop;
  udp_pool m_pool;
  reply_matcher m_matcher;
  std::size_t m_current_socket = 0;
  std::vector<int> m_families;  // of the sockets opened so far
  std::optional<std::size_t> m_blocked;  // a shared socket that had no room: sends wait for it
  std::vector<udp_pool::outgoing> m_messages;
  std::vector<finished> m_finished;  // since the last wait()
  std::vector<finished> m_handed;    // what the last wait() handed back
  std::uint64_t m_strays = 0;
};
