// A few long-lived UDP sockets that the queries of a bulk run share, all sending to one server.
// Opening and closing a socket per attempt costs more system calls than the query itself; here
// each datagram costs a share of one sendmmsg()/recvmmsg() call where the system has them
// (Linux), and one sendto()/recvfrom() elsewhere. Which attempt a datagram answers is for
// net/reply_matcher to say.
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

  // Opens `count` non-blocking sockets of the destination's family; false when not even one
  // could be opened (those that were stay open).
  bool open(const server_address& destination, std::size_t count);
  // One more socket; false when the system would not give one.
  bool grow();
  std::size_t size() const { return m_descriptors.size(); }
  int descriptor(std::size_t socket) const { return m_descriptors[socket]; }

  // One datagram to send; `sent` tells afterwards whether the system took it.
  struct outgoing {
    std::span<const std::uint8_t> bytes;
    bool sent = false;
  };
  // Sends every message from `socket`, in order, in as few calls as the system allows.
  void send(std::size_t socket, std::span<outgoing> messages);

  // The datagrams waiting on `socket`, up to one batch; empty when none is left. The views hold
  // until the next call. A batch shorter than batch_size() read all there was.
  std::span<const std::span<const std::uint8_t>> receive(std::size_t socket);
  static std::size_t batch_size();

 private:
  server_address m_destination;
  std::vector<int> m_descriptors;
  std::unique_ptr<std::uint8_t[]> m_buffers;  // one datagram's room per batch entry, untouched until used
  std::vector<std::span<const std::uint8_t>> m_received;
};
