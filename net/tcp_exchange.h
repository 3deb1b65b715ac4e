// One query and its reply over a TCP connection of their own (RFC 7766: one query per
// connection is enough), as a state machine that never waits: each step does what the socket
// allows at once and says what it needs next. The sequential run waits for that with poll() on
// descriptor() until the attempt's deadline; a run with many names in flight waits for it in its
// event loop. The deadline is the driver's: the exchange has no clock.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "net/server_address.h"
#include "net/socket.h"
#include "net/tcp_framing.h"

// What the exchange needs before its next step can go further.
enum class tcp_want : std::uint8_t {
  write,  // the descriptor writable: the connection made, or room for more of the query
  read,   // the descriptor readable: more of the reply, or its end
  done,   // finished: outcome() says how
};

enum class tcp_outcome : std::uint8_t {
  not_started,     // never started, or the query was empty
  pending,         // not finished
  reply,           // reply() holds a whole message
  no_socket,       // the socket could not be opened or made non-blocking
  too_long,        // the query is longer than the 65,535 bytes a length can announce
  refused,         // the server refused the connection
  connect_failed,  // the connection could not be made for another reason
  write_failed,    // the connection broke before the whole query was written
  closed,          // the query was out; the server closed or reset the connection before a
                   // whole reply: at once, within the length, or within the message
  zero_length,     // the query was out; the reply was announced with a length of 0
};

class tcp_exchange {
 public:
  tcp_exchange() = default;
  tcp_exchange(tcp_exchange&&) noexcept = default;
  tcp_exchange& operator=(tcp_exchange&&) noexcept = default;

  // Opens a non-blocking stream socket of `to`'s family and starts connecting to it; the
  // query is copied with its length in front. A failure here leaves the exchange done.
  void start(const server_address& to, std::span<const std::uint8_t> query);

  // Goes as far as the socket allows now: the connection's result, as much of the query as
  // the socket takes, as much of the reply as has come. Meant for when descriptor() is ready
  // for want(); a step at any other time only finds nothing to do.
  tcp_want step();

  tcp_want want() const;
  // The poll() events for want(): POLLOUT, POLLIN, or 0 when done.
  short poll_events() const;
  tcp_outcome outcome() const { return m_outcome; }
  // True once the whole query, its length included, has been handed to the connection.
  bool query_written() const { return m_written == m_query.size() && !m_query.empty(); }
  // The connection's descriptor, -1 when none is open.
  int descriptor() const { return static_cast<int>(m_link.descriptor()); }
  // The reply, whole when outcome() is `reply`.
  std::span<const std::uint8_t> reply() const { return m_reply.message(); }

  // Closes the connection, as the destructor does; what the exchange learned stays. A driver
  // that watches the descriptor stops watching it first.
  void close() { m_link.close(); }

 private:
  enum class phase : std::uint8_t { connecting, writing, reading, done };

  void check_connected();
  void write_query();
  void read_reply();
  void finish(tcp_outcome outcome);

  qv::socket m_link;
  phase m_phase = phase::done;
  tcp_outcome m_outcome = tcp_outcome::not_started;
  std::vector<std::uint8_t> m_query;  // framed
  std::size_t m_written = 0;
  frame_reader m_reply;
};
