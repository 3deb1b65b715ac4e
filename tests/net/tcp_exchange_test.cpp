#include "net/tcp_exchange.h"

#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "net/tcp_framing.h"

namespace {

using bytes = std::vector<std::uint8_t>;

// A stream may split a framed reply anywhere: fed in two pieces, split at every point, the
// reader takes the whole message and leaves the byte that follows it.
TEST(frame_reader, two_pieces_split_anywhere) {
  const bytes message = {1, 2, 3, 4, 5};
  bytes stream = *frame_message(message);
  stream.push_back(0xee);
  const std::span<const std::uint8_t> all(stream);
  for (std::size_t split = 0; split <= stream.size(); ++split) {
    SCOPED_TRACE(split);
    frame_reader reader;
    std::size_t taken = reader.feed(all.first(split));
    EXPECT_EQ(reader.started(), split != 0);
    taken += reader.feed(all.subspan(taken));
    EXPECT_EQ(taken, stream.size() - 1);
    EXPECT_EQ(reader.now(), frame_reader::state::whole);
    EXPECT_EQ(bytes(reader.message().begin(), reader.message().end()), message);
  }
}

TEST(frame_reader, wanted_zero_length_and_the_largest_frame) {
  frame_reader reader;
  EXPECT_EQ(reader.wanted(), 2u);
  const bytes length = {0x01, 0x00};
  reader.feed(std::span(length).first(1));
  EXPECT_EQ(reader.wanted(), 1u);
  reader.feed(std::span(length).subspan(1));
  EXPECT_EQ(reader.wanted(), 256u);

  frame_reader zero;
  const bytes zero_then_more = {0x00, 0x00, 0x00, 0x01, 0x2a};
  EXPECT_EQ(zero.feed(zero_then_more), 2u);  // nothing after the 0 is taken for a message
  EXPECT_EQ(zero.now(), frame_reader::state::zero_length);
  EXPECT_EQ(zero.wanted(), 0u);

  const auto largest = frame_message(bytes(k_max_framed_message, 7));
  ASSERT_TRUE(largest);
  EXPECT_EQ(bytes(largest->begin(), largest->begin() + 3), (bytes{0xff, 0xff, 7}));
  EXPECT_EQ(frame_message(bytes(k_max_framed_message + 1, 7)), std::nullopt);
}

// A query far larger than the connection takes at once: with the send buffer shrunk it goes
// out in many writes, and the peer must still get exactly the framed query. The reply comes
// back three bytes at a time and must be put together whole.
TEST(tcp_exchange, query_in_many_writes_reply_in_many_reads) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_NE(listener, -1);
  const int tiny = 1;  // the system's minimum; the accepted socket inherits it
  ::setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &tiny, sizeof tiny);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(listener, 1), 0);
  ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);

  bytes query(60000);
  for (std::size_t i = 0; i < query.size(); ++i) query[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
  const bytes message = {0x2a, 0x00, 0x81, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 9, 8, 7};
  const bytes reply = *frame_message(message);

  tcp_exchange exchange;
  exchange.start(server_address::ipv4("127.0.0.1", ntohs(address.sin_port)), query);
  ASSERT_NE(exchange.descriptor(), -1);
  ::setsockopt(exchange.descriptor(), SOL_SOCKET, SO_SNDBUF, &tiny, sizeof tiny);
  const int peer = ::accept(listener, nullptr, nullptr);
  ASSERT_NE(peer, -1);
  ::fcntl(peer, F_SETFL, ::fcntl(peer, F_GETFL) | O_NONBLOCK);

  bytes received;
  std::size_t reply_sent = 0;
  int write_steps = 0;
  const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (exchange.want() != tcp_want::done && std::chrono::steady_clock::now() < give_up) {
    pollfd ready{exchange.descriptor(), exchange.poll_events(), 0};
    if (::poll(&ready, 1, 5) > 0) {
      write_steps += exchange.want() == tcp_want::write;
      exchange.step();
    }
    std::uint8_t chunk[4096];
    const ssize_t got = ::recv(peer, chunk, sizeof chunk, 0);
    if (got > 0) received.insert(received.end(), chunk, chunk + got);
    if (received.size() == query.size() + 2 && reply_sent < reply.size()) {
      const std::size_t piece = std::min<std::size_t>(3, reply.size() - reply_sent);
      const ssize_t put = ::send(peer, reply.data() + reply_sent, piece, 0);
      if (put > 0) reply_sent += static_cast<std::size_t>(put);
    }
  }
  EXPECT_GT(write_steps, 2);
  EXPECT_TRUE(received == *frame_message(query)) << received.size() << " bytes";
  EXPECT_EQ(exchange.outcome(), tcp_outcome::reply);
  EXPECT_EQ(bytes(exchange.reply().begin(), exchange.reply().end()), message);
  ::close(peer);
  ::close(listener);
}

}  // namespace
