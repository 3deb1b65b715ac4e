#include "dns/message_header.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(message_header, fields_from_each_flag_byte) {
  struct row {
    const char* label;
    std::vector<std::uint8_t> bytes;
    message_header expected;
  };
  const row rows[] = {
      {"query: RD only, opcode 0",
       {0x12, 0x34,  // ID
        0x01, 0x00,  // RD
        0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
       {0x1234, false, false, false, true, false, false, false, 0, 0, 1, 0, 0, 0}},
      {"reply: every flag, opcode 2, NXDOMAIN, counts",
       {0xab, 0xcd,  // ID
        0x97,        // QR, opcode 2, AA, TC, RD
        0xb3,        // RA, AD, CD, RCODE 3 (the Z bit 0x40 is dropped)
        0x00, 0x01, 0x00, 0x02, 0x01, 0x00, 0xff, 0xff},
       {0xabcd, true, true, true, true, true, true, true, 2, 3, 1, 2, 256, 65535}},
      {"trailing bytes are not the header's",
       {0, 0, 0x80, 0x0f, 0, 0, 0, 0, 0, 0, 0, 0, 0xff},
       {0, true, false, false, false, false, false, false, 0, 15, 0, 0, 0, 0}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    EXPECT_EQ(read_message_header(r.bytes), r.expected);
  }
  EXPECT_EQ(read_message_header(std::vector<std::uint8_t>(11, 0xff)), std::nullopt);
}

TEST(message_header, rcode_names_and_the_unnamed_codes) {
  const std::pair<std::uint16_t, const char*> rows[] = {
      {0, "NOERROR"},  {2, "SERVFAIL"}, {3, "NXDOMAIN"}, {5, "REFUSED"}, {10, "NOTZONE"}, {11, "DSOTYPENI"},
      {12, ""},        {15, ""},        {16, "BADVERS"}, {23, "BADCOOKIE"}, {24, ""},    {65535, ""}};
  for (const auto& [code, name] : rows) EXPECT_EQ(rcode_name(code), name) << int(code);
}

}  // namespace
