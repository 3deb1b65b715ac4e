#include "dns/name_codec.h"

#include <gtest/gtest.h>

namespace {

using bytes = std::vector<std::uint8_t>;

// A 12-byte header followed by `body`, so names start at offset 12.
bytes message(bytes body) {
  bytes out = {0x2a, 0x00, 0x81, 0x80, 0, 0, 0, 0, 0, 0, 0, 0};
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

// `count` labels "a", then the root byte unless `open`.
bytes labels(int count, std::uint8_t size = 1, bool open = false) {
  bytes out;
  for (int i = 0; i < count; ++i) {
    out.push_back(size);
    out.insert(out.end(), size, 'a');
  }
  if (!open) out.push_back(0);
  return out;
}

// `count` pointers each to the next, then the label "p".
bytes pointer_chain(int count) {
  bytes out;
  for (int next = 14; next < 14 + 2 * count; next += 2) out.insert(out.end(), {std::uint8_t(0xc0 | next >> 8), std::uint8_t(next)});
  out.insert(out.end(), {1, 'p', 0});
  return out;
}

std::string as(int count, std::uint8_t size = 1) {
  std::string out;
  for (int i = 0; i < count; ++i) out += std::string(size, 'a') + ".";
  return out;
}

TEST(decode_name, sizes_texts_and_hostile_shapes) {
  struct row {
    const char* label;
    bytes msg;
    std::uint16_t offset;
    unsigned size;  // 0: failure, and the text must then be empty
    std::string text;
  };
  const row rows[] = {
      {"plain name", message({3, 'w', 'w', 'w', 4, 't', 'e', 's', 't', 0}), 12, 10, "www.test."},
      {"root name", message({0}), 12, 1, ""},
      {"bytes kept as they stand", message({3, 'a', '.', 0xff, 0}), 12, 5, "a.\xff."},
      {"pointer to an earlier name has size 2", message({1, 'x', 0, 0xc0, 12}), 15, 2, "x."},
      {"label then pointer: 1 + label + 2", message({1, 'x', 0, 2, 'y', 'z', 0xc0, 12}), 15, 5, "yz.x."},
      {"forward pointer", message({0xc0, 14, 1, 'f', 0}), 12, 2, "f."},
      {"pointer to itself runs out of steps", message({0xc0, 12}), 12, 0, ""},
      {"two-pointer loop", message({0xc0, 14, 0xc0, 12}), 12, 0, ""},
      {"label loop through a pointer", message({1, 'l', 0xc0, 12}), 12, 0, ""},
      {"pointer target at the length", message({0xc0, 14}), 12, 0, ""},
      {"pointer target past the end", message({0xc0, 15}), 12, 0, ""},
      {"98 labels", message(labels(98)), 12, 197, as(98)},
      {"99 labels", message(labels(99)), 12, 0, ""},
      {"97 pointers and a label", message(pointer_chain(97)), 12, 2, "p."},
      {"98 pointers and a label", message(pointer_chain(98)), 12, 0, ""},
      {"length byte 0x40 is a plain length", message(labels(1, 0x40)), 12, 66, as(1, 0x40)},
      {"length byte 0xbf is a plain length", message(labels(1, 0xbf)), 12, 193, as(1, 0xbf)},
      {"label ending on the last byte, no root", message(labels(1, 3, true)), 12, 0, ""},
      {"label ending one past the data", message({4, 'a', 'b', 'c'}), 12, 0, ""},
      {"label ending two past the data", message({5, 'a', 'b', 'c'}), 12, 0, ""},
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

// In a 65,535-byte message a label whose last byte is the one past the data moves the 16-bit
// position to 65,536 = 0, and decoding goes on at the first byte (here 0: the name ends).
TEST(decode_name, position_wraps_at_64k) {
  bytes msg(65535, 0);
  msg[65533] = 2;
  msg[65534] = 'w';
  std::string out;
  EXPECT_EQ(decode_name(msg, 65533, out), 4u);
  EXPECT_EQ(out, std::string("w\0.", 3));
  msg.pop_back();  // one byte shorter, the position stops at the length instead
  msg[65532] = 2;
  EXPECT_EQ(decode_name(msg, 65532, out), 0u);
}

}  // namespace
