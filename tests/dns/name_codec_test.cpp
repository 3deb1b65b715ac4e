#include "dns/name_codec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

// A 12-byte header (ID 0x2a00, counts 0) followed by `body`, so names start at offset 12.
bytes message(bytes body) {
  bytes out = {0x2a, 0x00, 0x81, 0x80, 0, 0, 0, 0, 0, 0, 0, 0};
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

// `count` labels "a" then the root byte.
bytes labels(int count) {
  bytes out;
  for (int i = 0; i < count; ++i) out.insert(out.end(), {0x01, 'a'});
  out.push_back(0);
  return out;
}

std::string repeat(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

bytes label_of(std::uint8_t size, bool terminated) {
  bytes out = {size};
  out.insert(out.end(), size, 'q');
  if (terminated) out.push_back(0);
  return out;
}

TEST(decode_name, sizes_texts_and_hostile_shapes) {
  struct row {
    const char* label;
    bytes msg;
    std::uint16_t offset;
    unsigned size;  // 0: failure
    std::string text;
  };
  const row rows[] = {
      {"plain name", message({3, 'w', 'w', 'w', 4, 't', 'e', 's', 't', 0}), 12, 10, "www.test."},
      {"root name", message({0}), 12, 1, ""},
      {"bytes kept as they stand", message({3, 'a', '.', 0xff, 0}), 12, 5, "a.\xff."},
      {"pointer to an earlier name has size 2", message({1, 'x', 0, 0xc0, 12}), 15, 2, "x."},
      {"label then pointer: 1 + label + 2", message({1, 'x', 0, 2, 'y', 'z', 0xc0, 12}), 15, 5, "yz.x."},
      {"forward pointer", message({0xc0, 14, 1, 'f', 0}), 12, 2, "f."},
      {"pointer to the root", message({0, 0xc0, 12}), 13, 2, ""},
      {"pointer to itself runs out of steps", message({0xc0, 12}), 12, 0, ""},
      {"two-pointer loop", message({0xc0, 14, 0xc0, 12}), 12, 0, ""},
      {"label loop through a pointer", message({1, 'l', 0xc0, 12}), 12, 0, ""},
      {"pointer target at the length", message({0xc0, 14}), 12, 0, ""},
      {"pointer target past the end", message({0xc0, 15}), 12, 0, ""},
      {"pointer into the high 14-bit range", message({0xff, 0xff}), 12, 0, ""},
      {"98 labels", message(labels(98)), 12, 197, repeat("a.", 98)},
      {"99 labels", message(labels(99)), 12, 0, ""},
      {"length byte 0x40 is a plain length", message(label_of(0x40, true)), 12, 66, std::string(64, 'q') + "."},
      {"length byte 0xbf is a plain length", message(label_of(0xbf, true)), 12, 193, std::string(191, 'q') + "."},
      {"label ending on the last byte, no root", message(label_of(3, false)), 12, 0, ""},
      {"label ending one past the data", message(bytes{4, 'a', 'b', 'c'}), 12, 0, ""},
      {"label ending two past the data", message(bytes{5, 'a', 'b', 'c'}), 12, 0, ""},
      {"offset 0 is never a name", message({0}), 0, 0, ""},
      {"offset at the length", message({0}), 13, 0, ""},
      {"offset past the length", message({0}), 14, 0, ""},
      {"message shorter than a header", bytes{0x2a, 0, 0x81, 0x80, 0, 0, 0, 0, 0, 0, 0}, 10, 0, ""},
      {"no message bytes", bytes{}, 12, 0, ""},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    std::string out = "stale";
    EXPECT_EQ(decode_name(r.msg, r.offset, out), r.size);
    EXPECT_EQ(out, r.text);
  }
}

TEST(decode_name, pointer_chains_count_against_the_same_budget) {
  // 97 pointers, each to the next, then one label: 98 steps pass; one more pointer fails.
  for (int pointers : {97, 98}) {
    bytes body;
    for (int i = 0; i < pointers; ++i) {
      const int next = 12 + 2 * (i + 1);
      body.insert(body.end(), {static_cast<std::uint8_t>(0xc0 | next >> 8), static_cast<std::uint8_t>(next)});
    }
    body.insert(body.end(), {1, 'p', 0});
    std::string out;
    EXPECT_EQ(decode_name(message(body), 12, out), pointers == 97 ? 2u : 0u) << pointers;
  }
}

// With a 65,535-byte message the 16-bit position wraps: a label whose last byte is the one past
// the data moves the position to 65,536 = 0, and decoding goes on at the message's first byte.
TEST(decode_name, position_wraps_at_64k) {
  bytes msg(65535, 0);
  msg[2] = 0x81;
  msg[65533] = 2;    // label of two bytes: 65534 and the zero past the end
  msg[65534] = 'w';
  // byte 0 is 0: after the wrap the name ends there
  std::string out;
  EXPECT_EQ(decode_name(msg, 65533, out), 4u);
  EXPECT_EQ(out, std::string("w\0.", 3));

  // One byte shorter, the same label leaves the position at the length, and that fails.
  msg.pop_back();
  msg[65532] = 2;
  EXPECT_EQ(decode_name(msg, 65532, out), 0u);
  EXPECT_EQ(out, "");
}

}  // namespace
