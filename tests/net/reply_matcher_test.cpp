#include "net/reply_matcher.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "dns/query_builder.h"

namespace {

using bytes = std::vector<std::uint8_t>;
using attempt_id = reply_matcher::attempt_id;

bytes query(const std::string& name, std::uint8_t id) {
  DNS_RES_RECORD record;
  EXPECT_TRUE(build_query(record, name, k_type_a));
  bytes message(record.packet.begin(), record.packet.end());
  message[0] = id;
  return message;
}

bytes reply(const std::string& name, std::uint8_t id) {
  bytes message = query(name, id);
  message[2] |= 0x80;  // QR
  return message;
}

// Servers 0 and 1 on sockets 0 and 1. ID 42 on socket 0 for server 0 has changed hands
// several times before a.example got it.
struct pool {
  reply_matcher matcher;
  std::map<attempt_id, bytes> sent;

  void wait(attempt_id attempt, std::size_t socket, std::size_t server, bytes message) {
    sent[attempt] = std::move(message);
    matcher.add(attempt, socket, server, sent[attempt]);
  }
  std::optional<attempt_id> find(std::size_t socket, std::size_t server, const bytes& datagram) const {
    return matcher.find(socket, server, datagram, [&](attempt_id a) { return std::span<const std::uint8_t>(sent.at(a)); });
  }

  pool() {
    attempt_id earlier = 100;
    for (const char* name : {"old1.example", "old2.example", "old3.example", "old4.example"}) {
      wait(earlier, 0, 0, query(name, 42));
      matcher.forget(0, 0, sent[earlier++]);
    }
    wait(1, 0, 0, query("a.example", 42));
    wait(2, 0, 0, query("b.example", 43));
    wait(3, 1, 0, query("c.example", 42));
    wait(4, 0, 1, query("d.example", 42));
  }
};

TEST(reply_matcher, find) {
  struct row {
    const char* label;
    std::size_t socket, server;
    bytes datagram;
    std::optional<attempt_id> expected;
  };
  const row rows[] = {
      {"the holder's reply", 0, 0, reply("a.example", 42), 1},
      {"the same ID on another socket", 1, 0, reply("c.example", 42), 3},
      {"the same ID and socket for another server", 0, 1, reply("d.example", 42), 4},
      {"the same ID from a server nobody waits on", 0, 2, reply("a.example", 42), std::nullopt},
      {"late reply to the first earlier holder", 0, 0, reply("old1.example", 42), std::nullopt},
      {"late reply to the last earlier holder", 0, 0, reply("old4.example", 42), std::nullopt},
      {"late reply, question in other case", 0, 0, reply("OLD2.Example", 42), std::nullopt},
      {"foreign ID, question of a waiting attempt", 0, 0, reply("b.example", 77), 2},
      {"foreign ID, question in other case", 0, 0, reply("B.EXAMPLE", 77), 2},
      {"foreign ID, question waiting on another socket", 1, 0, reply("b.example", 77), std::nullopt},
      {"foreign ID, question waiting for another server", 0, 0, reply("d.example", 77), std::nullopt},
      {"stray", 0, 0, reply("nobody.example", 77), std::nullopt},
  };
  const pool p;
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    EXPECT_EQ(p.find(r.socket, r.server, r.datagram), r.expected);
  }
}

TEST(reply_matcher, free_socket) {
  struct row {
    const char* label;
    std::size_t server;
    std::uint8_t id;
    int avoid;
    std::size_t prefer;
    unsigned usable;  // a bit per socket
    std::optional<std::size_t> expected;
  };
  const row rows[] = {
      {"ID taken on sockets 0 and 1", 0, 42, -1, 0, 0b111, 2},
      {"and the free one avoided", 0, 42, 2, 0, 0b111, std::nullopt},
      {"and the free one unusable", 0, 42, -1, 0, 0b011, std::nullopt},
      {"taken for that server only", 1, 42, -1, 0, 0b111, 1},
      {"free for a server nobody waits on", 2, 42, -1, 0, 0b111, 0},
      {"prefer", 0, 44, -1, 1, 0b111, 1},
      {"prefer avoided: the next one", 0, 44, 1, 1, 0b111, 2},
      {"the next one wraps", 0, 44, 2, 2, 0b111, 0},
      {"prefer unusable: the next usable one", 0, 44, -1, 0, 0b110, 1},
  };
  pool p;
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    const auto usable = [&](std::size_t socket) { return (r.usable >> socket & 1) != 0; };
    EXPECT_EQ(p.matcher.free_socket(3, r.server, query("e.example", r.id), r.avoid, r.prefer, usable), r.expected);
  }
  p.matcher.forget(0, 0, p.sent[1]);
  EXPECT_EQ(p.matcher.free_socket(3, 0, query("e.example", 42), -1, 0, [](std::size_t) { return true; }), 0u);
  EXPECT_EQ(p.find(0, 0, reply("a.example", 42)), std::nullopt);
}

}  // namespace
