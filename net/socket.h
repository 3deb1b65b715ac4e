// A thin RAII wrapper over the BSD socket calls; zib uses only its datagram path.
#pragma once

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

namespace qv {

// Move-only: the object owns its descriptor, a moved-from object holds none, and the
// destructor closes what is still open, so no path through an attempt leaks a descriptor.
class socket {
 public:
  socket();   // descriptor -1, family 0, type 3; makes the process ignore SIGPIPE
  ~socket();  // shutdown(SHUT_WR) then close, when a descriptor is open
  socket(const socket&) = delete;
  socket& operator=(const socket&) = delete;
  socket(socket&& other) noexcept;
  socket& operator=(socket&& other) noexcept;

  // kind 0 stream/TCP, 1 datagram/UDP, 2 raw/UDP; a kind above 2 is refused without a call.
  // The family is stored even when the kind is refused.
  bool open(std::uint32_t kind, std::uint32_t family);

  // `address` in network byte order (as inet_addr gives it), `port` in host order.
  bool send_to(const std::uint8_t* octets, std::size_t length, std::uint32_t address, std::uint16_t port);
  // The same to any socket address (IPv4 or IPv6) of `size` bytes.
  bool send_to(const std::uint8_t* octets, std::size_t length, const sockaddr* to, socklen_t size);

  // Waits up to `timeout_seconds` for one datagram and reads it; 0 means nothing. On success
  // the sender's address and port are written back, in host order when `host_order` is set.
  std::uint32_t receive_from(std::uint8_t* buffer, std::size_t capacity, std::uint32_t& address,
                             std::uint16_t& port, std::int32_t timeout_seconds, bool host_order);

  // Reads the datagram that is waiting, for a caller that has waited for it itself: one
  // recvfrom, 0 when it fails. The sender is not asked for: the first datagram is the reply.
  std::uint32_t read_datagram(std::uint8_t* buffer, std::size_t capacity);

  // True when nothing is open or close() succeeded; on failure the descriptor is kept.
  bool close();

  std::uint32_t type() const { return m_type; }
  std::uint32_t family() const { return m_family; }
  std::int64_t descriptor() const { return m_descriptor; }

 private:
  std::uint32_t m_type = 3;
  std::uint32_t m_family = 0;
  std::int64_t m_descriptor = -1;
};

}  // namespace qv
