#include "dns/edns.h"

#include <gtest/gtest.h>

#include "dns/query_builder.h"
#include "dns/response_parser.h"

namespace {

using bytes = std::vector<std::uint8_t>;

// The options of a reply's OPT record, read from its data; the fields around them come from
// the record's class and TTL as the parser left them.
TEST(read_opt_record, fields_and_options) {
  struct row {
    const char* label;
    bytes data;
    std::vector<edns_option> options;
  };
  const row rows[] = {
      {"none", {}, {}},
      {"two, one empty",
       {0x00, 0x0a, 0x00, 0x02, 0xab, 0xcd,  // COOKIE, 2 bytes
        0xfd, 0xe9, 0x00, 0x00},             // 65001, no data
       {{10, {0xab, 0xcd}}, {65001, {}}}},
      {"a length past the data ends the list",
       {0x00, 0x03, 0x00, 0x01, 0x6e,  // NSID "n"
        0x00, 0x0c, 0x00, 0x03, 0x00, 0x00},
       {{3, {0x6e}}}},
      {"fewer than four bytes left", {0x00, 0x03, 0x00, 0x00, 0x01, 0x02, 0x03}, {{3, {}}}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    DNS_RES_RECORD record;
    record.type = k_type_opt;
    record.class_ = 1232;
    record.ttl = 0x01008000;  // extended code 1, version 0, DO
    record.rdata = r.data;
    EXPECT_EQ(read_opt_record(record), (opt_record{1232, 1, 0, true, r.options}));
  }
}

// The query's OPT record, parsed back as a reply's: the parser and the reader agree with the
// writer on every field, and the response code gains the upper bits only with an OPT record.
TEST(opt_record_wire, read_back_from_a_built_query) {
  DNS_RES_RECORD query;
  ASSERT_TRUE(build_query_for(query, "example.com", 1, 1, {false, edns_request{4096, true}}));
  bytes reply(query.packet.begin(), query.packet.end());
  reply[2] |= 0x80;  // QR: the parser takes responses only
  std::uint16_t id = 0;
  std::vector<DNS_RES_RECORD> questions, answers, authority, additional;
  ASSERT_NE(parse_response(nullptr, 0, reply, id, questions, answers, authority, additional), 0u);
  const auto opt = find_opt_record(additional);
  EXPECT_EQ(opt, (opt_record{4096, 0, 0, true, {}}));
  EXPECT_EQ(full_rcode(3, opt), 3);
  EXPECT_EQ(full_rcode(0, opt_record{512, 1, 0, false, {}}), 16);
  EXPECT_EQ(find_opt_record(answers), std::nullopt);
}

}  // namespace
