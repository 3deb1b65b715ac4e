#include "net/socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <vector>

// A socket handed on keeps what it is and owns its descriptor alone.
TEST(socket, kind_and_family_travel_with_the_descriptor) {
  qv::socket first;
  EXPECT_EQ(std::vector<std::int64_t>({first.type(), first.family(), first.descriptor()}), std::vector<std::int64_t>({3, 0, -1}));
  ASSERT_TRUE(first.open(1, AF_INET));
  qv::socket second(std::move(first));
  qv::socket third;
  third = std::move(second);
  EXPECT_EQ(std::vector<std::int64_t>({third.type(), third.family()}), std::vector<std::int64_t>({2, AF_INET}));
  EXPECT_EQ(first.descriptor() + second.descriptor(), -2);
  EXPECT_FALSE(third.open(3, AF_INET6));
  EXPECT_EQ(third.family(), static_cast<std::uint32_t>(AF_INET6));
}

// A datagram to a named address and back: the peer listens on 127.0.0.2 (all of 127/8 is the
// loopback interface), so one sent to the local host's default address would be lost.
TEST(socket, datagram_to_a_named_address_and_back) {
  qv::socket peer;
  qv::socket client;
  ASSERT_TRUE(peer.open(1, AF_INET) && client.open(1, AF_INET));
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = ::inet_addr("127.0.0.2");
  socklen_t size = sizeof at;
  ASSERT_EQ(::bind(static_cast<int>(peer.descriptor()), reinterpret_cast<sockaddr*>(&at), size), 0);
  ASSERT_EQ(::getsockname(static_cast<int>(peer.descriptor()), reinterpret_cast<sockaddr*>(&at), &size), 0);
  const std::uint8_t ping[] = {1, 2, 3};
  ASSERT_TRUE(client.send_to(ping, sizeof ping, at.sin_addr.s_addr, ntohs(at.sin_port)));
  std::uint8_t buffer[8] = {};
  std::uint32_t address = 0;
  std::uint16_t port = 0;
  ASSERT_EQ(peer.receive_from(buffer, sizeof buffer, address, port, 2, true), 3u);
  EXPECT_EQ(address >> 24, 127u);  // host order
  ASSERT_TRUE(peer.send_to(buffer, 2, htonl(address), port));
  ASSERT_EQ(client.receive_from(buffer, sizeof buffer, address, port, 2, false), 2u);
  EXPECT_EQ(std::vector<std::uint32_t>({address, port, buffer[1]}),
            std::vector<std::uint32_t>({at.sin_addr.s_addr, at.sin_port, 2}));  // network order
}
