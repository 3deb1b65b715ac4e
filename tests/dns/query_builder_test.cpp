#include "dns/query_builder.h"

#include <gtest/gtest.h>

#include <tuple>

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

// The message layout itself shows in every query the end-to-end tests see; here the record
// around it, and the type without an encoder, which leaves the name out entirely.
TEST(build_query, record_fields_and_a_type_without_an_encoder) {
  for (const auto& [text, type, tail] : {std::tuple<std::string, std::uint16_t, bytes>{"8.8.4.4", 12, {}},
                                         {"example.com", 28, {0, 28, 0, 1}}}) {
    DNS_RES_RECORD record;
    record.server = "stale";
    ASSERT_TRUE(build_query(record, text, type));
    DNS_RES_RECORD expected;
    expected.packet = tail.empty() ? record.packet : shared_bytes(bytes{record.packet[0], 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 28, 0, 1});
    expected.name = text;  // as typed, never reversed
    expected.type = type;
    expected.class_ = 1;
    expected.id = record.packet[0];
    EXPECT_EQ(record, expected);
  }
}

TEST(build_query, id_is_10_to_99_low_byte_first_and_all_reachable) {
  bool seen[256] = {};
  for (int i = 0; i < 3000; ++i) {
    DNS_RES_RECORD record;
    ASSERT_TRUE(build_query(record, "example.com", 1));
    ASSERT_EQ(record.packet[1], 0);
    seen[record.packet[0]] = true;
  }
  for (int id = 0; id < 256; ++id) EXPECT_EQ(seen[id], id >= 10 && id <= 99) << id;
}

TEST(build_query, failure_leaves_the_record_cleared) {
  const std::pair<std::string, std::uint16_t> rows[] = {
      {"", 1}, {".", 1}, {std::string(256, 'a'), 15}, {"", 12}, {"..", 12}, {"1." + std::string(256, '2'), 12}};
  for (const auto& [text, type] : rows) {
    DNS_RES_RECORD record;
    ASSERT_TRUE(build_query(record, "example.com", 1));
    record.server = "s", record.ttl = record.rdlength = record.rdata_offset = 7, record.timestamp = 7, record.rdata = {7};
    EXPECT_FALSE(build_query(record, text, type)) << text.size() << " type " << type;
    EXPECT_EQ(record, DNS_RES_RECORD{});
  }
}

TEST(encode_name, dots_label_sizes_and_reversal) {
  const std::string l255(255, 'x'), l64(64, 'y');
  struct row {
    const char* label;
    bool reverse;
    std::string text;
    std::optional<bytes> expected;
  };
  const row rows[] = {
      {"trailing dot", false, "example.com.", wire({"example", "com"})},
      {"leading and repeated dots", false, ".example..com", wire({"example", "com"})},
      {"spaces and case kept", false, " Ex ample.COM", wire({" Ex ample", "COM"})},
      {"64-byte label keeps its length byte 0x40", false, l64, wire({l64})},
      {"255-byte label", false, l255 + ".a", wire({l255, "a"})},
      {"256-byte label", false, std::string(256, 'x'), std::nullopt},
      {"empty", false, "", std::nullopt},
      {"only dots", false, "...", std::nullopt},
      {"short address", true, "10.1", wire({"1", "10", "in-addr", "arpa"})},
      {"host name is not checked", true, "host.example", wire({"example", "host", "in-addr", "arpa"})},
      {"IPv6 text is one label", true, "2001:db8::1", wire({"2001:db8::1", "in-addr", "arpa"})},
      {"only dots", true, "..", std::nullopt},
      {"255-byte part", true, l255, wire({l255, "in-addr", "arpa"})},
      {"256-byte part", true, std::string(256, '1'), std::nullopt},
      {"empty address", true, "", std::nullopt},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    EXPECT_EQ(r.reverse ? encode_reverse_name(r.text) : encode_name(r.text), r.expected);
  }
}

// Any text form of an IPv6 address gives the same 32 nibbles, last first; interop.py checks the
// names against dig -x.
TEST(encode_ip6_reverse_name, text_forms_and_refusals) {
  bytes all_zero;
  for (int i = 0; i < 32; ++i) all_zero.insert(all_zero.end(), {1, '0'});
  all_zero.insert(all_zero.end(), {3, 'i', 'p', '6', 4, 'a', 'r', 'p', 'a', 0});
  bytes last_one = all_zero;
  last_one[1] = 'f';  // the low nibble of the last byte comes first
  EXPECT_EQ(encode_ip6_reverse_name("::"), all_zero);
  EXPECT_EQ(encode_ip6_reverse_name("::F"), last_one);
  EXPECT_EQ(encode_ip6_reverse_name("0:0:0:0:0:0:0.0.0.15"), last_one);
  for (const char* text : {"", "1:2:3", "192.0.2.1", "::1%lo", " ::1", "::g", "1::2::3"}) {
    EXPECT_EQ(encode_ip6_reverse_name(text), std::nullopt) << text;
    EXPECT_EQ(name_fault(text, {true, std::nullopt}), *text ? "not an IPv6 address" : "empty name") << text;
  }
  EXPECT_EQ(encode_ip6_reverse_name(std::string_view("::1\0", 4)), std::nullopt);
}

}  // namespace
