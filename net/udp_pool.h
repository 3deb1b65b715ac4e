// A few long-lived UDP sockets that the queries of a bulk run share, of each family a server of
// the run needs. Opening and closing a socket per attempt costs more system calls than the query
// itself; here each datagram costs a share of one sendmmsg()/recvmmsg() call where the system
// has them (Linux), and one sendto()/recvfrom() elsewhere. Every datagram names its own
// destination, and every datagram read comes with its source, so that a reply is matched by
// where it came from as well as by its ID (net/reply_matcher).
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "net/server_address.h"

class udp_pool {
 public:
  udp_pool() = default;
  ~udp_pool();
  udp_pool(const udp_pool&) = delete;
  udp_pool& operator=(const udp_pool&) = delete;

  // One more non-blocking socket of `family`; false when the system would not give one.
  bool grow(int family);
  std::size_t size() const { return m_sockets.size(); }
  int descriptor(std::size_t socket) const { return m_sockets[socket].descriptor; }
  int family(std::size_t socket) const { return m_sockets[socket].family; }

  // One datagram to send and, afterwards, what became of it.
  enum class fate : std::uint8_t {
    unsent,   // not tried: the socket had no room for an earlier one (send again when writable)
    sent,
    failed,   // the system refused it
  };
  struct outgoing {
    std::span<const std::uint8_t> bytes;
    const server_address* to = nullptr;
    fate result = fate::unsent;
  };
  // Sends every message from `socket`, in order, in as few calls as the system allows. When the
  // socket's buffer is full (EAGAIN, ENOBUFS) it stops there and returns false: that message
  // and the ones after it stay unsent.
  bool send(std::size_t socket, std::span<outgoing> messages);

  // One datagram read, with where it came from.
  struct incoming {
    std::span<const std::uint8_t> bytes;
    const sockaddr* from;
    socklen_t from_size;
  };
  // The datagrams waiting on `socket`, up to one batch; empty when none is left. The views hold
  // until the next call.
  std::span<const incoming> receive(std::size_t socket);
  static std::size_t batch_size();

 private:
  struct socket_entry {
    int descriptor;
    int family;
  };
  std::vector<socket_entry> m_sockets;
  std::unique_ptr<std::uint8_t[]> m_buffers;  // one datagram's room per batch entry, untouched until used
  std::unique_ptr<sockaddr_storage[]> m_sources;
  std::vector<incoming> m_received;
};
