#include "net/socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

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
