#include "net/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <vector>

#include "support/fake_responder.h"

namespace {

using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

const std::vector<std::uint8_t> k_query = {
    0x2A, 0x00,  // ID 42, low byte first
    0x01, 0x00,  // RD
    0x00, 0x01,  // QDCOUNT
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x01, 'a', 0x04, 't', 'e', 's', 't', 0x00,
    0x00, 0x01,  // A
    0x00, 0x01,  // IN
};

long long elapsed_ms(clock_type::time_point since) {
  return std::chrono::duration_cast<milliseconds>(clock_type::now() - since).count();
}

TEST(socket, open_follows_the_kind_table) {
  const struct {
    const char* label;
    std::uint32_t kind, family;
    bool opens;
    std::uint32_t type;  // as stored afterwards
    bool touches_errno;  // a refused kind must not reach the system
  } cases[] = {
      {"stream", 0, AF_INET, true, 1, false},
      {"datagram", 1, AF_INET, true, 2, false},
      {"kind 3 refused", 3, AF_INET, false, 3, false},
      {"kind 99 refused, family still stored", 99, 12345, false, 3, false},
      {"bad family reaches socket()", 1, 12345, false, 2, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    qv::socket s;
    errno = 0;
    EXPECT_EQ(s.open(c.kind, c.family), c.opens);
    EXPECT_EQ(s.family(), c.family);
    EXPECT_EQ(s.type(), c.type);
    EXPECT_EQ(s.descriptor() != -1, c.opens);
    EXPECT_EQ(errno != 0, c.touches_errno);
  }
}

// Refused sends and reads leave the socket as it was: the datagram that arrives first is the
// one whole query, and the reply stays queued for the read that can take it.
TEST(socket, send_and_receive_refuse_empty_buffers_and_report_the_sender) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.101", {}, fake::answer_a());
  const std::uint32_t to = ::inet_addr("127.0.0.101");
  qv::socket unopened, s;
  EXPECT_FALSE(unopened.send_to(k_query.data(), k_query.size(), to, 53));
  ASSERT_TRUE(s.open(1, AF_INET));
  std::vector<std::uint8_t> buffer(65536);
  for (const bool host_order : {true, false}) {
    SCOPED_TRACE(host_order ? "host order" : "network order");
    EXPECT_FALSE(s.send_to(nullptr, k_query.size(), to, 53));
    EXPECT_FALSE(s.send_to(k_query.data(), 0, to, 53));  // UDP would carry an empty datagram
    ASSERT_TRUE(s.send_to(k_query.data(), k_query.size(), to, 53));
    const std::size_t n_sent = host_order ? 1 : 2;
    ASSERT_TRUE(server.wait_for_sent(n_sent));
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    EXPECT_EQ(s.receive_from(buffer.data(), 0, address, port, 0, true), 0u);
    EXPECT_EQ(s.receive_from(nullptr, buffer.size(), address, port, 0, true), 0u);
    EXPECT_EQ(address, 0u);
    const std::uint32_t n = s.receive_from(buffer.data(), buffer.size(), address, port, 0, host_order);
    EXPECT_EQ(std::vector<std::uint8_t>(buffer.begin(), buffer.begin() + n), server.sent().at(n_sent - 1));
    EXPECT_EQ(address, host_order ? 0x7F000065 : to);
    EXPECT_EQ(port, host_order ? 53 : htons(53));
    EXPECT_EQ(server.received().at(n_sent - 1).data, k_query);
  }
  // Nothing queued: 1 second is waited out in full.
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  const auto start = clock_type::now();
  EXPECT_EQ(s.receive_from(buffer.data(), buffer.size(), address, port, 1, true), 0u);
  EXPECT_GE(elapsed_ms(start), 900);
  EXPECT_EQ(server.received().size(), 2u);
}

// A negative limit makes select fail, which leaves the descriptor marked, so the read blocks
// until a datagram comes: here one that the responder holds back for 300 ms.
TEST(socket, negative_time_limit_falls_through_to_a_blocking_read) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.102", {}, fake::delayed(fake::answer_a(), milliseconds(300)));
  qv::socket s;
  ASSERT_TRUE(s.open(1, AF_INET));
  timeval guard{5, 0};  // bounds the test if the reply never comes
  ASSERT_EQ(::setsockopt(static_cast<int>(s.descriptor()), SOL_SOCKET, SO_RCVTIMEO, &guard, sizeof guard), 0);
  ASSERT_TRUE(s.send_to(k_query.data(), k_query.size(), ::inet_addr("127.0.0.102"), 53));
  std::vector<std::uint8_t> buffer(65536);
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  const auto start = clock_type::now();
  const std::uint32_t n = s.receive_from(buffer.data(), buffer.size(), address, port, -1, true);
  EXPECT_GE(elapsed_ms(start), 250);
  ASSERT_TRUE(server.wait_for_sent(1));  // the responder records a reply after sending it
  EXPECT_EQ(n, server.sent().at(0).size());
}

}  // namespace
