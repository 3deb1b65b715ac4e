#include "dns/query_builder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dns/response_parser.h"

namespace {

using bytes = std::vector<std::uint8_t>;

bytes wire(std::initializer_list<std::string_view> labels) {
  bytes out;
  for (auto label : labels) {
    out.push_back(static_cast<std::uint8_t>(label.size()));
    out.insert(out.end(), label.begin(), label.end());
  }
  out.push_back(0);
  return out;
}

// The whole message except the random ID in bytes 0 and 1, which the caller checks.
bytes without_id(const bytes& packet) { return bytes(packet.begin() + 2, packet.end()); }

TEST(build_query, whole_messages_for_each_encoder) {
  struct row {
    const char* label;
    std::string text;
    std::uint16_t type;
    bytes tail;  // bytes 2 to the end
  };
  const row rows[] = {
      {"name lookup", "example.com", 1,
       {0x01, 0x00,                                       // RD only
        0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,   // QD 1, AN/NS/AR 0
        0x07, 'e', 'x', 'a', 'm', 'p', 'l', 'e', 0x03, 'c', 'o', 'm', 0x00,
        0x00, 0x01,                                       // QTYPE A
        0x00, 0x01}},                                     // QCLASS IN
      {"reverse lookup", "8.8.4.4", 12,
       {0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
        0x01, '4', 0x01, '4', 0x01, '8', 0x01, '8', 0x07, 'i', 'n', '-', 'a', 'd', 'd', 'r',
        0x04, 'a', 'r', 'p', 'a', 0x00,
        0x00, 0x0c, 0x00, 0x01}},
      {"type without encoder leaves QNAME out, not even the root byte", "example.com", 28,
       {0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x1c, 0x00, 0x01}},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    DNS_RES_RECORD record;
    record.server = "stale";
    ASSERT_TRUE(build_query(record, r.text, r.type));
    EXPECT_EQ(without_id(record.packet), r.tail);
    EXPECT_EQ(record.packet.size(), r.tail.size() + 2);
    EXPECT_EQ(record.name, r.text);  // as typed, never reversed
    EXPECT_EQ(record.type, r.type);
    EXPECT_EQ(record.class_, 1);
    EXPECT_EQ(record.id, record.packet[0] | record.packet[1] << 8);
    EXPECT_EQ(record.server, "");
    EXPECT_EQ(record.ttl + record.rdlength + record.rdata_offset + record.timestamp, 0u);
  }
}

TEST(build_query, id_is_two_digits_written_low_byte_first) {
  bool seen[100] = {};
  for (int i = 0; i < 3000; ++i) {
    DNS_RES_RECORD record;
    ASSERT_TRUE(build_query(record, "example.com", 1));
    ASSERT_EQ(record.packet[1], 0);
    ASSERT_GE(record.packet[0], 10);
    ASSERT_LE(record.packet[0], 99);
    seen[record.packet[0]] = true;
  }
  // Every ID is reachable: a generator stuck on a few values would make retries collide.
  for (int id = 10; id <= 99; ++id) EXPECT_TRUE(seen[id]) << id;
}

TEST(build_query, failure_leaves_the_record_cleared) {
  // Only dots fail a name lookup; a reverse lookup of "." still asks for in-addr.arpa.
  const std::pair<std::string, std::uint16_t> rows[] = {
      {"", 1}, {".", 1}, {std::string(256, 'a'), 15}, {"", 12}, {"1." + std::string(256, '2'), 12}};
  for (const auto& [text, type] : rows) {
    DNS_RES_RECORD record;
    ASSERT_TRUE(build_query(record, "example.com", 1));
    EXPECT_FALSE(build_query(record, text, type)) << text.size() << " type " << type;
    EXPECT_EQ(record, DNS_RES_RECORD{});
  }
}

TEST(build_query, parses_back_to_its_question) {
  for (std::uint16_t type : {1, 2, 5, 12, 15, 16}) {
    DNS_RES_RECORD query;
    ASSERT_TRUE(build_query(query, "mail.Example.ORG", type));
    std::uint16_t id = 0;
    std::vector<DNS_RES_RECORD> q, an, ns, ar;
    ASSERT_EQ(parse_response(nullptr, 0, query.packet, id, q, an, ns, ar, false), query.packet.size());
    ASSERT_EQ(q.size(), 1u);
    EXPECT_EQ(q[0].name, type == 12 ? "ORG.Example.mail.in-addr.arpa." : "mail.Example.ORG.");
    EXPECT_EQ(q[0].type, type);
    EXPECT_EQ(q[0].class_, 1);
    EXPECT_EQ(id, query.id);
    // and a query is not a response: the tool's own parse refuses it
    EXPECT_EQ(parse_response(nullptr, 0, query.packet, id, q, an, ns, ar), 0u);
  }
}

TEST(encode_name, dots_and_label_sizes) {
  const std::string l255(255, 'x'), l64(64, 'y');
  struct row {
    const char* label;
    std::string text;
    std::optional<bytes> expected;
  };
  const row rows[] = {
      {"plain", "example.com", wire({"example", "com"})},
      {"trailing dot", "example.com.", wire({"example", "com"})},
      {"leading and repeated dots", ".example..com", wire({"example", "com"})},
      {"spaces and case kept", " Ex ample.COM", wire({" Ex ample", "COM"})},
      {"one label", "localhost", wire({"localhost"})},
      {"64-byte label keeps its length byte 0x40", l64, wire({l64})},
      {"255-byte label", l255 + ".a", wire({l255, "a"})},
      {"256-byte label", std::string(256, 'x'), std::nullopt},
      {"empty", "", std::nullopt},
      {"single dot", ".", std::nullopt},
      {"only dots", "...", std::nullopt},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    EXPECT_EQ(encode_name(r.text), r.expected);
  }
}

TEST(encode_reverse_name, parts_reversed_as_they_stand) {
  struct row {
    const char* label;
    std::string text;
    std::optional<bytes> expected;
  };
  const row rows[] = {
      {"address", "192.0.2.10", wire({"10", "2", "0", "192", "in-addr", "arpa"})},
      {"short address", "10.1", wire({"1", "10", "in-addr", "arpa"})},
      {"host name is not checked", "host.example", wire({"example", "host", "in-addr", "arpa"})},
      {"IPv6 text is one label", "2001:db8::1", wire({"2001:db8::1", "in-addr", "arpa"})},
      {"only dots still gets the suffix", "..", wire({"in-addr", "arpa"})},
      {"256-byte part", std::string(256, '1'), std::nullopt},
      {"empty", "", std::nullopt},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    EXPECT_EQ(encode_reverse_name(r.text), r.expected);
  }
}

TEST(random_digits, count_and_first_digit) {
  for (int count : {-1, 0, 1, 2, 7}) {
    for (int i = 0; i < 200; ++i) {
      const std::string digits = random_digits(count);
      ASSERT_EQ(digits.size(), static_cast<std::size_t>(count < 2 ? 1 : count));
      ASSERT_GE(digits[0], '1');
      ASSERT_LE(digits[0], '9');
      ASSERT_EQ(digits.find_first_not_of("0123456789"), std::string::npos);
    }
  }
}

}  // namespace
