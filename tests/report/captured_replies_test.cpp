// Every record of the replies captured from nsd, parsed and rendered; the expected data was
// checked against dig's reading of the same replies (tests/data/dig-oracle.txt).
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "dns/response_parser.h"
#include "params/input_params.h"
#include "report/record_data.h"
#include "report/table_writer.h"
#include "report/xml_writer.h"
#include "time/clock.h"

namespace {

constexpr std::uint64_t k_when = timestamp_from_unix(1794773041, 123456);  // 2026-11-15 20:04:01.123

struct parsed_reply {
  bool ok = false;
  std::vector<DNS_RES_RECORD> questions, answers, authority, additional;
};

parsed_reply parse_capture(const std::string& file) {
  parsed_reply reply;
  std::ifstream in(std::string(ZIB_TEST_DATA_DIR) + "/" + file, std::ios::binary);
  if (!in) return reply;
  const std::vector<std::uint8_t> message{std::istreambuf_iterator<char>(in), {}};
  const std::string server = "127.0.0.20";
  std::uint16_t id = 0;
  reply.ok = parse_response(&server, k_when, message, id, reply.questions, reply.answers,
                            reply.authority, reply.additional) != 0;
  return reply;
}

TEST(captured_replies, every_record_renders_as_dig_reads_it) {
  const struct {
    const char* file;
    std::vector<std::string> data;  // answers, then authority, then additional
  } cases[] = {
      {"nsd-a-chain.bin",
       {"alias2.example.test.", "www.example.test.", "192.0.2.10", "ns1.example.test.",
        "ns2.example.test.", "127.0.0.20", "192.0.2.2"}},
      {"nsd-mx-several.bin",
       {"10; mail1.example.test.", "20; mail2.example.test.", "30; mx.example.net.",
        "ns1.example.test.", "ns2.example.test.", "192.0.2.25", "192.0.2.26", "127.0.0.20",
        "192.0.2.2"}},
      {"nsd-txt-strings.bin",  // length octets kept; the 13 of "second string" is a CR
       {"\x0bv=spf1 -all second string\x05third", "ns1.example.test.", "ns2.example.test.",
        "127.0.0.20", "192.0.2.2"}},
      {"nsd-soa-apex.bin",
       {"ns1.example.test.; hostmaster.example.test.; 0x78a498a5; 0x00001c20; 0x00000384; "
        "0x00127500; 0x0000012c",
        "ns1.example.test.", "ns2.example.test.", "127.0.0.20", "192.0.2.2"}},
      {"nsd-aaaa-www.bin",
       {"2001:db8:0:0:0:0:0:10", "ns1.example.test.", "ns2.example.test.", "127.0.0.20",
        "192.0.2.2"}},
      {"nsd-ptr-reverse.bin", {"www.example.test.", "ns1.example.test."}},
      {"nsd-a-referral.bin", {"ns.sub.example.test.", "192.0.2.53"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const parsed_reply reply = parse_capture(c.file);
    if (!reply.ok) {
      ADD_FAILURE() << "cannot read or parse the capture";
      continue;
    }
    std::vector<std::string> data;
    for (const auto* section : {&reply.answers, &reply.authority, &reply.additional}) {
      for (const DNS_RES_RECORD& record : *section) {
        std::ostringstream out;
        write_record_data(out, record, "; ");
        data.push_back(out.str());
      }
    }
    EXPECT_EQ(data, c.data);
  }
}

TEST(captured_replies, nxdomain_rows_in_text_and_xml) {
  parsed_reply reply = parse_capture("nsd-a-nxdomain.bin");
  ASSERT_TRUE(reply.ok) << "tests/data/nsd-a-nxdomain.bin missing or unreadable";
  ASSERT_EQ(reply.questions.size(), 1u);
  ASSERT_EQ(reply.authority.size(), 1u);
  input_params config;
  config.server = "127.0.0.20";
  config.heading_pending = 1;
  std::ostringstream text;
  write_table_row(reply.questions[0], text, "question", "invalid", config);
  write_table_row(reply.authority[0], text, "authority", "success", config);
  EXPECT_EQ(text.str(),
            "query                                    | comment   | status  | id   | DNSserv    | "
            "date       |  time-UTC     | type | tname  | class | ttl    | size | data\n"
            "nope.example.test.                       | question  | invalid | 002a | 127.0.0.20 | "
            "2026-11-15 |  20:04:01.123 |    1 |      A |     1 |      0 |    0 |   <none>\n"
            "example.test.                            | authority | success | 002a | 127.0.0.20 | "
            "2026-11-15 |  20:04:01.123 |    6 |    SOA |     1 |    300 |   39 | "
            "ns1.example.test.; hostmaster.example.test.; 0x78a498a5; 0x00001c20; 0x00000384; "
            "0x00127500; 0x0000012c\n");
  std::ostringstream xml;
  write_xml_entry(reply.authority[0], xml, config, "success");
  EXPECT_EQ(xml.str(),
            "<data_entry><query>example.test.</query><status>success</status><packet_id>002a"
            "</packet_id><dns_server>127.0.0.20</dns_server><query_date_utc>2026-11-15"
            "</query_date_utc><query_time_utc>20:04:01.123</query_time_utc><dns_type>6</dns_type>"
            "<dns_type_name>SOA</dns_type_name><dns_class>1</dns_class><ttl_secs>300</ttl_secs>"
            "<data_length>39</data_length><raw_data_hex>03 6e 73 31 c0 11 0a 68 6f 73 74 6d 61 73 "
            "74 65 72 c0 11 78 a4 98 a5 00 00 1c 20 00 00 03 84 00 12 75 00 00 00 01 2c"
            "</raw_data_hex><translated_data  domain_name=\"ns1.example.test.\" admin_mailbox="
            "\"hostmaster.example.test.\" serial_num=\"0x78a498a5\" refresh_sec=\"7200\" "
            "retry_sec=\"900\" expire_sec=\"1209600\" min_sec=\"300\"></translated_data>"
            "</data_entry>\n");
}

}  // namespace
