#include "net/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <vector>

#include "support/descriptors.h"
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

std::uint32_t network_address(const char* text) { return ::inet_addr(text); }

long long elapsed_ms(clock_type::time_point since) {
  return std::chrono::duration_cast<milliseconds>(clock_type::now() - since).count();
}

TEST(socket, new_object_holds_nothing_and_ignores_sigpipe) {
  struct sigaction previous {};
  ::sigaction(SIGPIPE, nullptr, &previous);
  ::signal(SIGPIPE, SIG_DFL);
  {
    qv::socket s;
    EXPECT_EQ(s.descriptor(), -1);
    EXPECT_EQ(s.family(), 0u);
    EXPECT_EQ(s.type(), 3u);
    struct sigaction now {};
    ::sigaction(SIGPIPE, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_IGN);
    EXPECT_TRUE(s.close());  // nothing open is not a failure
  }
  ::sigaction(SIGPIPE, &previous, nullptr);
}

TEST(socket, open_follows_the_kind_table) {
  struct open_case {
    const char* label;
    std::uint32_t kind;
    std::uint32_t family;
    bool opens;
    std::uint32_t type;  // as stored afterwards
    bool touches_errno;  // a refused kind must not reach the system
  };
  const open_case cases[] = {
      {"stream", 0, AF_INET, true, 1, false},
      {"datagram", 1, AF_INET, true, 2, false},
      {"kind 3 refused", 3, AF_INET, false, 3, false},
      {"kind 99 refused, family still stored", 99, 12345, false, 3, false},
      {"bad family reaches socket()", 1, 12345, false, 2, true},
  };
  for (const open_case& c : cases) {
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

TEST(socket, moves_hand_over_the_descriptor_and_close_it_once) {
  const auto before = open_descriptor_count();
  if (!before) GTEST_SKIP() << "no /proc/self/fd to count descriptors";
  {
    qv::socket a;
    ASSERT_TRUE(a.open(1, AF_INET));
    const auto fd = a.descriptor();
    qv::socket b(std::move(a));
    EXPECT_EQ(a.descriptor(), -1);
    EXPECT_EQ(b.descriptor(), fd);
    qv::socket c;
    ASSERT_TRUE(c.open(1, AF_INET));
    EXPECT_EQ(open_descriptor_count(), *before + 2);
    c = std::move(b);  // c's own descriptor is closed here
    EXPECT_EQ(c.descriptor(), fd);
    EXPECT_EQ(open_descriptor_count(), *before + 1);
    EXPECT_TRUE(c.close());
    EXPECT_EQ(c.descriptor(), -1);
    EXPECT_TRUE(c.close());
  }
  EXPECT_EQ(open_descriptor_count(), *before);
}

TEST(socket, send_refuses_empty_input_and_sends_one_whole_datagram) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.100", {});
  const std::uint32_t to = network_address("127.0.0.100");
  qv::socket unopened;
  EXPECT_FALSE(unopened.send_to(k_query.data(), k_query.size(), to, 53));

  qv::socket s;
  ASSERT_TRUE(s.open(1, AF_INET));
  EXPECT_FALSE(s.send_to(nullptr, k_query.size(), to, 53));
  EXPECT_FALSE(s.send_to(k_query.data(), 0, to, 53));  // UDP would carry an empty datagram
  EXPECT_TRUE(s.send_to(k_query.data(), k_query.size(), to, 53));

  const auto start = clock_type::now();
  while (server.received().empty() && elapsed_ms(start) < 2000) std::this_thread::sleep_for(milliseconds(5));
  const auto got = server.received();
  ASSERT_EQ(got.size(), 1u);  // loopback keeps order: an empty datagram would have come first
  EXPECT_EQ(got[0].data, k_query);
}

TEST(socket, receive_reads_a_queued_datagram_and_reports_its_sender) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.101", {}, fake::answer_a());
  const std::uint32_t to = network_address("127.0.0.101");
  qv::socket s;
  ASSERT_TRUE(s.open(1, AF_INET));
  std::vector<std::uint8_t> buffer(65536);

  struct receive_case {
    const char* label;
    bool host_order;
    std::uint32_t address;
    std::uint16_t port;
  };
  const receive_case cases[] = {
      {"host order", true, 0x7F000065, 53},
      {"network order", false, network_address("127.0.0.101"), htons(53)},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(cases[i].label);
    ASSERT_TRUE(s.send_to(k_query.data(), k_query.size(), to, 53));
    ASSERT_TRUE(server.wait_for_sent(i + 1));
    // The refusals leave the datagram queued for the real read below.
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    EXPECT_EQ(s.receive_from(buffer.data(), 0, address, port, 0, true), 0u);
    EXPECT_EQ(s.receive_from(nullptr, buffer.size(), address, port, 0, true), 0u);
    EXPECT_EQ(address, 0u);
    const auto start = clock_type::now();
    const std::uint32_t n = s.receive_from(buffer.data(), buffer.size(), address, port, 0, cases[i].host_order);
    EXPECT_LT(elapsed_ms(start), 200);
    const auto reply = server.sent().at(i);
    ASSERT_EQ(n, reply.size());
    EXPECT_EQ(std::vector<std::uint8_t>(buffer.begin(), buffer.begin() + n), reply);
    EXPECT_EQ(address, cases[i].address);
    EXPECT_EQ(port, cases[i].port);
  }
}

TEST(socket, receive_waits_at_most_its_time_limit) {
  qv::socket s;
  ASSERT_TRUE(s.open(1, AF_INET));
  std::vector<std::uint8_t> buffer(512);
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  struct wait_case {
    std::int32_t seconds;
    long long min_ms, max_ms;
  };
  for (const wait_case c : {wait_case{0, 0, 200}, wait_case{1, 900, 2500}}) {
    SCOPED_TRACE(c.seconds);
    const auto start = clock_type::now();
    EXPECT_EQ(s.receive_from(buffer.data(), buffer.size(), address, port, c.seconds, true), 0u);
    EXPECT_GE(elapsed_ms(start), c.min_ms);
    EXPECT_LE(elapsed_ms(start), c.max_ms);
  }
  qv::socket unopened;
  EXPECT_EQ(unopened.receive_from(buffer.data(), buffer.size(), address, port, 0, true), 0u);
}

// A negative limit makes select fail, which leaves the descriptor marked, so the read blocks
// until a datagram comes: here one that the responder holds back for 300 ms.
TEST(socket, negative_time_limit_falls_through_to_a_blocking_read) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.102", {}, fake::delayed(fake::answer_a(), milliseconds(300)));
  qv::socket s;
  ASSERT_TRUE(s.open(1, AF_INET));
  timeval guard{5, 0};  // bounds the test if the reply never comes
  ASSERT_EQ(::setsockopt(static_cast<int>(s.descriptor()), SOL_SOCKET, SO_RCVTIMEO, &guard, sizeof guard), 0);
  ASSERT_TRUE(s.send_to(k_query.data(), k_query.size(), network_address("127.0.0.102"), 53));
  std::vector<std::uint8_t> buffer(65536);
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  const auto start = clock_type::now();
  const std::uint32_t n = s.receive_from(buffer.data(), buffer.size(), address, port, -1, true);
  EXPECT_GE(elapsed_ms(start), 250);
  EXPECT_EQ(n, server.sent().at(0).size());
}

}  // namespace
