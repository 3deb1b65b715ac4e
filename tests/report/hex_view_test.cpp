// The hex view lines and the verbose dump of one attempt, compared as whole text.
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include "report/hex_view.h"

namespace {

using bytes = std::vector<std::uint8_t>;

bytes counting(std::size_t n) {
  bytes out(n);
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<std::uint8_t>(i);
  return out;
}

std::string dump(const bytes& data, std::uint64_t base_address = 0) {
  std::ostringstream out;
  out << std::dec << std::setfill('*');  // state left by someone else must not show
  hex_dump(data, out, 0, base_address);
  return out.str();
}

// The query zib sends for example.com A, message ID 42 (bytes 2a 00).
const bytes k_example_query = {
    0x2a, 0x00, 0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // header, RD
    0x07, 'e', 'x', 'a', 'm', 'p', 'l', 'e', 0x03, 'c', 'o', 'm', 0x00,        // example.com
    0x00, 0x01, 0x00, 0x01,                                                  // A, IN
};
const std::string k_example_query_lines =
    "0000 0000:  2a 00 01 00 00 01 00 00  00 00 00 00 07 65 78 61  *............exa\n"
    "0000 0010:  6d 70 6c 65 03 63 6f 6d  00 00 01 00 01           mple.com.....\n";

TEST(hex_view, lines_pad_short_rows_to_the_character_column) {
  const struct {
    const char* label;
    bytes data;
    std::uint64_t base;
    std::string lines;
  } cases[] = {
      {"empty", {}, 0, ""},
      {"8 bytes, edges of the printable range", {0x1f, 0x20, 0x41, 0x7e, 0x7f, 0x00, 0x80, 0xff}, 0,
       "0000 0000:  1f 20 41 7e 7f 00 80 ff " + std::string(25, ' ') + " . A~....\n"},
      {"16 bytes", counting(16), 0,
       "0000 0000:  00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  ................\n"},
      {"17 bytes", counting(17), 0,
       "0000 0000:  00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  ................\n"
       "0000 0010:  10 " + std::string(46, ' ') + " .\n"},
      {"29-byte query", k_example_query, 0, k_example_query_lines},
      {"address above 48 bits", {0x41}, 0x0001000200030004ULL,
       "0001 0002 0003 0004:  41 " + std::string(46, ' ') + " A\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(dump(c.data, c.base), c.lines);
  }
}

TEST(hex_view, dump_of_an_attempt_shows_what_was_exchanged) {
  const std::string rule(79, '-');
  const bytes reply = counting(17);
  const struct {
    const char* label;
    bytes sent;
    std::uint32_t sent_length;
    bytes received;
    std::uint32_t received_length;
    std::string text;
  } cases[] = {
      {"sock err", {}, 0, {}, 0, "\n" + rule + "\n" + rule + "\n\n"},
      {"timeout", k_example_query, 29, {}, 0,
       "\n" + rule + "\npacket that was sent\n" + k_example_query_lines + "\n" + rule + "\n\n"},
      {"success", k_example_query, 29, reply, 17,
       "\n" + rule + "\npacket that was sent\n" + k_example_query_lines +
           "\npacket that was recv'd\n" + dump(reply) + rule + "\n\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    dns_packet_transaction transaction;
    transaction.sent = c.sent;
    transaction.sent_length = c.sent_length;
    transaction.received = c.received;
    transaction.received_length = c.received_length;
    std::ostringstream out;
    dump_attempt(out, transaction);
    EXPECT_EQ(out.str(), c.text);
  }
}

}  // namespace
