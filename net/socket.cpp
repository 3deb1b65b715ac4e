#include "net/socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <utility>

namespace qv {

namespace {

// What open() passes to socket() for each kind; the stored type is always kind + 1, which is
// also how the system numbers these three types. The raw kind keeps protocol 17 (UDP).
struct socket_kind {
  int type;
  int protocol;
};
constexpr socket_kind k_socket_kinds[] = {
    {SOCK_STREAM, IPPROTO_TCP},  // kind 0
    {SOCK_DGRAM, IPPROTO_UDP},   // kind 1: the only one zib opens
    {SOCK_RAW, IPPROTO_UDP},     // kind 2
};
constexpr std::uint32_t k_kind_count = sizeof(k_socket_kinds) / sizeof(k_socket_kinds[0]);

// IPv4 addresses only; the length field (where the platform has one) stays 0 because the
// length is always passed alongside.
constexpr socklen_t k_ipv4_address_size = 16;

sockaddr_in ipv4_address(std::uint32_t family, std::uint32_t network_address, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = static_cast<sa_family_t>(family);
  address.sin_port = htons(port);
  address.sin_addr.s_addr = network_address;
  return address;
}

}  // namespace

socket::socket() {
  // A send on a broken stream would otherwise end the process; set on every construction
  // because the disposition is process-wide and someone else may have changed it since.
  ::signal(SIGPIPE, SIG_IGN);
}

socket::~socket() {
  if (m_descriptor != -1) {
    ::shutdown(static_cast<int>(m_descriptor), SHUT_WR);
    close();
  }
}

socket::socket(socket&& other) noexcept
    : m_type(other.m_type), m_family(other.m_family), m_descriptor(std::exchange(other.m_descriptor, -1)) {
  ::signal(SIGPIPE, SIG_IGN);
}

socket& socket::operator=(socket&& other) noexcept {
  if (this != &other) {
    socket discarded(std::move(*this));  // closes what this object held
    m_type = other.m_type;
    m_family = other.m_family;
    m_descriptor = std::exchange(other.m_descriptor, -1);
  }
  return *this;
}

bool socket::open(std::uint32_t kind, std::uint32_t family) {
  m_family = family;
  if (kind >= k_kind_count) return false;
  const socket_kind& chosen = k_socket_kinds[kind];
  m_type = kind + 1;
  m_descriptor = ::socket(static_cast<int>(family), chosen.type, chosen.protocol);
  return m_descriptor != -1;
}

bool socket::send_to(const std::uint8_t* octets, std::size_t length, std::uint32_t address,
                     std::uint16_t port) {
  const sockaddr_in destination = ipv4_address(m_family, address, port);
  return send_to(octets, length, reinterpret_cast<const sockaddr*>(&destination), k_ipv4_address_size);
}

bool socket::send_to(const std::uint8_t* octets, std::size_t length, const sockaddr* to, socklen_t size) {
  if (octets == nullptr || length == 0 || m_descriptor == -1) return false;
  const int fd = static_cast<int>(m_descriptor);
  ssize_t count = ::sendto(fd, octets, length, 0, to, size);
  if (count == -1) return false;
  // A datagram goes out whole on the first call; the loop only matters for streams.
  std::size_t sent = static_cast<std::size_t>(count);
  while (sent < length) {
    count = ::sendto(fd, octets + sent, length - sent, 0, to, size);
    if (count == -1) return false;
    sent += static_cast<std::size_t>(count);
  }
  return true;
}

std::uint32_t socket::receive_from(std::uint8_t* buffer, std::size_t capacity, std::uint32_t& address,
                                   std::uint16_t& port, std::int32_t timeout_seconds, bool host_order) {
  if (m_descriptor == -1 || buffer == nullptr || capacity == 0) return 0;
  const int fd = static_cast<int>(m_descriptor);
  sockaddr_in sender{};
  socklen_t sender_size = k_ipv4_address_size;

  timeval limit{};
  limit.tv_sec = static_cast<decltype(limit.tv_sec)>(timeout_seconds);  // sign-extended
  limit.tv_usec = 0;
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);

  // The result of select is not examined on purpose: when it fails (a negative limit is
  // refused by the system) the set stays as it was, the descriptor is still marked, and the
  // blocking recvfrom below waits for the next datagram with no limit at all.
  ::select(fd + 1, &readable, nullptr, nullptr, &limit);

  std::uint32_t count = 0;
  if (FD_ISSET(fd, &readable)) {
    const ssize_t got = ::recvfrom(fd, buffer, capacity, 0, reinterpret_cast<sockaddr*>(&sender), &sender_size);
    if (got != -1) {
      address = host_order ? ntohl(sender.sin_addr.s_addr) : sender.sin_addr.s_addr;
      port = host_order ? ntohs(sender.sin_port) : sender.sin_port;
      count = static_cast<std::uint32_t>(got);
    }
  }
  FD_CLR(fd, &readable);
  return count;
}

std::uint32_t socket::read_datagram(std::uint8_t* buffer, std::size_t capacity) {
  if (m_descriptor == -1 || buffer == nullptr || capacity == 0) return 0;
  const ssize_t got = ::recvfrom(static_cast<int>(m_descriptor), buffer, capacity, 0, nullptr, nullptr);
  return got == -1 ? 0 : static_cast<std::uint32_t>(got);
}

bool socket::close() {
  if (m_descriptor == -1) return true;
  // Not retried on EINTR: the descriptor may already be released, and a second close could
  // hit a descriptor that was handed out again in between.
  if (::close(static_cast<int>(m_descriptor)) != 0) return false;
  m_descriptor = -1;
  return true;
}

}  // namespace qv
