#include "net/udp_pool.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

// sendmmsg() and recvmmsg() are Linux's (and FreeBSD's); elsewhere one call per datagram.
#if defined(__linux__)
#define ZIB_HAVE_MMSG 1
#endif

namespace {

// The largest datagram UDP can carry, so no reply is ever cut short by the read.
constexpr std::size_t k_datagram_room = 65536;
// Datagrams read or sent per call.
constexpr std::size_t k_batch = 32;
// A socket holds the replies of up to a few hundred attempts between two reads; more room than
// the system's default keeps a burst from being dropped. The system may grant less.
constexpr int k_receive_buffer = 1 << 20;

bool make_socket(int family, int& descriptor) {
  descriptor = ::socket(family, SOCK_DGRAM, IPPROTO_UDP);
  if (descriptor == -1) return false;
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags == -1 || ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == -1 ||
      ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == -1) {
    ::close(descriptor);
    return false;
  }
  ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &k_receive_buffer, sizeof k_receive_buffer);
  return true;
}

// A full socket buffer, or (Linux) a full device queue: the datagram may go later.
bool no_room_now(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == ENOBUFS; }

}  // namespace

std::size_t udp_pool::batch_size() { return k_batch; }

udp_pool::~udp_pool() {
  // Not retried on EINTR: the descriptor may already be released.
  for (const socket_entry& s : m_sockets) ::close(s.descriptor);
}

bool udp_pool::grow(int family) {
  int descriptor = -1;
  if (!make_socket(family, descriptor)) return false;
  m_sockets.push_back({descriptor, family});
  return true;
}

bool udp_pool::send(std::size_t socket, std::span<outgoing> messages) {
  const int fd = m_sockets[socket].descriptor;
  std::size_t next = 0;
#if defined(ZIB_HAVE_MMSG)
  mmsghdr headers[k_batch];
  iovec parts[k_batch];
  while (next < messages.size()) {
    const std::size_t count = std::min(k_batch, messages.size() - next);
    for (std::size_t i = 0; i < count; ++i) {
      const outgoing& m = messages[next + i];
      parts[i] = {const_cast<std::uint8_t*>(m.bytes.data()), m.bytes.size()};
      headers[i] = {};
      headers[i].msg_hdr.msg_name = const_cast<sockaddr*>(m.to->data());
      headers[i].msg_hdr.msg_namelen = m.to->size();
      headers[i].msg_hdr.msg_iov = &parts[i];
      headers[i].msg_hdr.msg_iovlen = 1;
    }
    const int done = ::sendmmsg(fd, headers, static_cast<unsigned>(count), 0);
    if (done < 0 && errno == EINTR) continue;
    if (done < 0 && no_room_now(errno)) return false;
    // The system stops at the first message it refuses: that one failed; go on after it.
    const std::size_t taken = done < 0 ? 0 : static_cast<std::size_t>(done);
    for (std::size_t i = 0; i < taken; ++i) messages[next + i].result = fate::sent;
    next += taken;
    if (taken < count) messages[next++].result = fate::failed;
  }
#else
  for (; next < messages.size(); ++next) {
    outgoing& m = messages[next];
    ssize_t done;
    do {
      done = ::sendto(fd, m.bytes.data(), m.bytes.size(), 0, m.to->data(), m.to->size());
    } while (done < 0 && errno == EINTR);
    if (done < 0 && no_room_now(errno)) return false;
    m.result = done == static_cast<ssize_t>(m.bytes.size()) ? fate::sent : fate::failed;
  }
#endif
  return true;
}

std::span<const udp_pool::incoming> udp_pool::receive(std::size_t socket) {
  if (!m_buffers) {
    m_buffers.reset(new std::uint8_t[k_batch * k_datagram_room]);
    m_sources.reset(new sockaddr_storage[k_batch]);
  }
  m_received.clear();
  const int fd = m_sockets[socket].descriptor;
#if defined(ZIB_HAVE_MMSG)
  mmsghdr headers[k_batch];
  iovec parts[k_batch];
  for (std::size_t i = 0; i < k_batch; ++i) {
    parts[i] = {m_buffers.get() + i * k_datagram_room, k_datagram_room};
    headers[i] = {};
    headers[i].msg_hdr.msg_name = &m_sources[i];
    headers[i].msg_hdr.msg_namelen = sizeof(sockaddr_storage);
    headers[i].msg_hdr.msg_iov = &parts[i];
    headers[i].msg_hdr.msg_iovlen = 1;
  }
  int count;
  do {
    count = ::recvmmsg(fd, headers, static_cast<unsigned>(k_batch), MSG_DONTWAIT, nullptr);
  } while (count < 0 && errno == EINTR);
  for (int i = 0; i < count; ++i) {
    const auto at = static_cast<std::size_t>(i);
    m_received.push_back({{m_buffers.get() + at * k_datagram_room, headers[at].msg_len},
                          reinterpret_cast<const sockaddr*>(&m_sources[at]), headers[at].msg_hdr.msg_namelen});
  }
#else
  for (std::size_t i = 0; i < k_batch; ++i) {
    std::uint8_t* room = m_buffers.get() + i * k_datagram_room;
    socklen_t size = sizeof(sockaddr_storage);
    ssize_t got;
    do {
      got = ::recvfrom(fd, room, k_datagram_room, 0, reinterpret_cast<sockaddr*>(&m_sources[i]), &size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) break;
    m_received.push_back({{room, static_cast<std::size_t>(got)}, reinterpret_cast<const sockaddr*>(&m_sources[i]), size});
  }
#endif
  return m_received;
}
