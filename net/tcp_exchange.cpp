#include "net/tcp_exchange.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

namespace {

constexpr std::uint32_t k_kind_stream = 0;

// SIGPIPE is ignored by every socket object's constructor; where the platform can say so per
// call as well, a send on a broken connection says so here too.
#ifdef MSG_NOSIGNAL
constexpr int k_send_flags = MSG_NOSIGNAL;
#else
constexpr int k_send_flags = 0;
#endif

bool make_non_blocking(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags != -1 && ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != -1;
}

bool would_block(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

// One buffer for every read: zib reads on one thread, and the frame reader keeps its own copy
// of what it takes.
std::span<std::uint8_t> read_buffer() {
  static std::uint8_t buffer[k_max_framed_message];
  return buffer;
}

}  // namespace

void tcp_exchange::start(const server_address& to, std::span<const std::uint8_t> query) {
  *this = tcp_exchange();
  if (query.empty()) return;
  auto framed = frame_message(query);
  if (!framed) return finish(tcp_outcome::too_long);
  m_query = std::move(*framed);
  m_outcome = tcp_outcome::pending;
  if (!m_link.open(k_kind_stream, static_cast<std::uint32_t>(to.family())) || !make_non_blocking(descriptor())) {
    m_link.close();
    return finish(tcp_outcome::no_socket);
  }
  if (::connect(descriptor(), to.data(), to.size()) == 0) {
    m_phase = phase::writing;
    return;
  }
  // Interrupted, the connection goes on being made in the background, as when in progress.
  if (errno == EINPROGRESS || errno == EINTR) {
    m_phase = phase::connecting;
    return;
  }
  finish(errno == ECONNREFUSED ? tcp_outcome::refused : tcp_outcome::connect_failed);
}

tcp_want tcp_exchange::step() {
  if (m_phase == phase::connecting) check_connected();
  if (m_phase == phase::writing) write_query();
  if (m_phase == phase::reading) read_reply();
  return want();
}

tcp_want tcp_exchange::want() const {
  switch (m_phase) {
    case phase::connecting:
    case phase::writing:
      return tcp_want::write;
    case phase::reading:
      return tcp_want::read;
    default:
      return tcp_want::done;
  }
}

short tcp_exchange::poll_events() const {
  switch (want()) {
    case tcp_want::write:
      return POLLOUT;
    case tcp_want::read:
      return POLLIN;
    default:
      return 0;
  }
}

void tcp_exchange::check_connected() {
  int error = 0;
  socklen_t size = sizeof error;
  if (::getsockopt(descriptor(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  if (error != 0) return finish(error == ECONNREFUSED ? tcp_outcome::refused : tcp_outcome::connect_failed);
  // No error yet may still mean "not connected yet": only a peer address says it is made.
  sockaddr_storage peer{};
  socklen_t peer_size = sizeof peer;
  if (::getpeername(descriptor(), reinterpret_cast<sockaddr*>(&peer), &peer_size) == 0) {
    m_phase = phase::writing;
  } else if (errno != ENOTCONN) {
    finish(tcp_outcome::connect_failed);
  }
}

void tcp_exchange::write_query() {
  // A stream takes what fits in its buffer; the rest waits for the next writable step.
  while (m_written < m_query.size()) {
    const ssize_t count = ::send(descriptor(), m_query.data() + m_written, m_query.size() - m_written, k_send_flags);
    if (count > 0) {
      m_written += static_cast<std::size_t>(count);
      continue;
    }
    if (count == -1 && errno == EINTR) continue;
    if (count == 0 || would_block(errno)) return;
    return finish(tcp_outcome::write_failed);
  }
  m_phase = phase::reading;
}

void tcp_exchange::read_reply() {
  const std::span<std::uint8_t> buffer = read_buffer();
  for (;;) {
    // Never more than the current part needs: what follows the reply is not ours to read.
    const ssize_t count = ::recv(descriptor(), buffer.data(), m_reply.wanted(), 0);
    if (count > 0) {
      m_reply.feed(buffer.first(static_cast<std::size_t>(count)));
      if (m_reply.now() == frame_reader::state::whole) return finish(tcp_outcome::reply);
      if (m_reply.now() == frame_reader::state::zero_length) return finish(tcp_outcome::zero_length);
      continue;
    }
    if (count == -1 && errno == EINTR) continue;
    if (count == -1 && would_block(errno)) return;
    return finish(tcp_outcome::closed);  // the end of the stream, or a reset
  }
}

void tcp_exchange::finish(tcp_outcome outcome) {
  m_phase = phase::done;
  m_outcome = outcome;
}
