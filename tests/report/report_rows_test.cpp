// Record data, text and CSV rows and XML entries, compared as whole texts: replies captured
// from nsd for the ordinary shapes, hand-made records for the fallbacks.
#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
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

using bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t k_when = timestamp_from_unix(1794773041, 123456);  // 2026-11-15 20:04:01.123

// One answer of `type` after the question example.com, so names in `rdata` can point at 12.
DNS_RES_RECORD answer(std::uint16_t type, const bytes& rdata, std::uint32_t ttl = 3600) {
  DNS_RES_RECORD r;
  r.packet = {0xaf, 0x00, 0x81, 0x80, 0, 1, 0, 1, 0, 0, 0, 0,               // header, ID af 00
              7, 'e', 'x', 'a', 'm', 'p', 'l', 'e', 3, 'c', 'o', 'm', 0,    // offset 12
              0, 1, 0, 1, 0xc0, 0x0c, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0};        // the answer's fields
  r.rdata_offset = static_cast<std::uint32_t>(r.packet.size());
  r.packet.insert(r.packet.end(), rdata.begin(), rdata.end());
  r.server = "127.0.0.1";
  r.name = "example.com.";
  r.type = type;
  r.class_ = 1;
  r.ttl = ttl;
  r.rdlength = static_cast<std::uint16_t>(rdata.size());
  r.timestamp = k_when;
  r.id = 0x00af;
  r.rdata = rdata;
  return r;
}

const bytes k_soa_rdata = {
    3, 'n', 's', '1', 0xc0, 0x0c, 1, 'h', 0xc0, 0x0c,  // ns1.example.com. h.example.com.
    0, 0, 0x0e, 0x10, 0, 0, 0x0e, 0x10, 0, 0, 0x03, 0x84, 0, 0x09, 0x3a, 0x80, 0, 0, 0, 5};
const bytes k_short_soa_rdata = {3, 'n', 's', '1', 0xc0, 0x0c, 0xc0, 0x0c, 0, 0, 0, 1};
const bytes k_mx_rdata = {0x00, 0x0a, 4, 'm', 'a', 'i', 'l', 0xc0, 0x0c};

std::string data_text(const DNS_RES_RECORD& record, std::string_view field_sep = "; ") {
  std::ostringstream out;
  write_record_data(out, record, field_sep);
  return out.str();
}

TEST(record_data, fallbacks_and_odd_lengths) {
  const struct {
    const char* label;
    std::uint16_t type;
    bytes rdata;
    std::string text;
  } cases[] = {
      {"A of six bytes", 1, {1, 2, 3, 4, 5, 6}, "01 02 03 04 05 06"},
      {"NS pointing past the end", 2, {0xc0, 0xff}, "c0 ff"},
      {"MX keeps its preference", 15, {0x00, 0x0a, 0xc0, 0xff}, "10; 00 0a c0 ff"},
      {"SOA numbers past the end", 6, k_short_soa_rdata, "03 6e 73 31 c0 0c c0 0c 00 00 00 01"},
      {"TXT with CR LF", 16, {4, 'a', '\r', '\n', 'b'}, "\x04" "a  b"},
      {"AAAA of zeros", 28, bytes(16, 0), "0:0:0:0:0:0:0:0"},
      {"AAAA odd byte dropped", 28, {0x00, 0xff, 0x12}, "ff"},
      {"AAAA of one byte", 28, {0x12}, ""},
      {"HINFO", 13, {0x01, 'x'}, "01 78"},
      {"type without a name", 65, {0x00, 0xab, 0xff}, "00 ab ff"},
      {"no data, any type", 15, {}, "  <none>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(data_text(answer(c.type, c.rdata)), c.text);
  }
}

struct reply_records {
  std::vector<DNS_RES_RECORD> questions, answers, authority, additional;
};

// A capture in tests/data parsed as zib parses a reply; false when it is missing or bad.
bool parse_capture(const char* file, reply_records& reply) {
  std::ifstream in(std::string(ZIB_TEST_DATA_DIR) + "/" + file, std::ios::binary);
  const bytes message{std::istreambuf_iterator<char>(in), {}};
  const std::string server = "127.0.0.20";
  std::uint16_t id = 0;
  return parse_response(&server, k_when, message, id, reply.questions, reply.answers,
                        reply.authority, reply.additional) != 0;
}

// The expected data was checked against dig's reading of the same replies (dig-oracle.txt).
TEST(record_data, every_captured_record_reads_as_dig_reads_it) {
  const struct {
    const char* file;
    std::vector<std::string> data;  // answers, authority, additional
  } cases[] = {
      {"nsd-a-chain.bin", {"alias2.example.test.", "www.example.test.", "192.0.2.10",
                           "ns1.example.test.", "ns2.example.test.", "127.0.0.20", "192.0.2.2"}},
      {"nsd-mx-several.bin", {"10; mail1.example.test.", "20; mail2.example.test.",
                              "30; mx.example.net.", "ns1.example.test.", "ns2.example.test.",
                              "192.0.2.25", "192.0.2.26", "127.0.0.20", "192.0.2.2"}},
      {"nsd-txt-strings.bin",  // length octets kept; the 13 of "second string" is a CR
       {"\x0bv=spf1 -all second string\x05third", "ns1.example.test.", "ns2.example.test.",
        "127.0.0.20", "192.0.2.2"}},
      {"nsd-aaaa-www.bin", {"2001:db8:0:0:0:0:0:10", "ns1.example.test.", "ns2.example.test.",
                            "127.0.0.20", "192.0.2.2"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    reply_records reply;
    ASSERT_TRUE(parse_capture(c.file, reply));
    std::vector<std::string> data;
    for (const auto* section : {&reply.answers, &reply.authority, &reply.additional}) {
      for (const DNS_RES_RECORD& record : *section) data.push_back(data_text(record));
    }
    EXPECT_EQ(data, c.data);
  }
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(table_writer, text_rows_under_one_heading) {
  reply_records reply;
  ASSERT_TRUE(parse_capture("nsd-a-nxdomain.bin", reply));
  input_params config;
  config.server = "127.0.0.20";  // the DNS server column is as wide as this text
  config.heading_pending = 1;
  std::ostringstream out;
  out << std::hex << std::setfill('*');  // whatever was left behind must not show
  DNS_RES_RECORD a = answer(1, {93, 184, 216, 34}, 4294967295u);
  a.name = std::string(38, 'x') + "|y|";
  write_table_row(reply.questions[0], out, "question", "invalid", config);
  write_table_row(reply.authority[0], out, "authority", "success", config);
  write_table_row(a, out, "answer", "success", config);
  EXPECT_EQ(config.heading_pending, 0);
  EXPECT_EQ(lines_of(out.str()), (std::vector<std::string>{
      "query                                    | comment   | status  | id   | DNSserv    | date"
      "       |  time-UTC     | type | tname  | class | ttl    | size | data",
      "nope.example.test.                       | question  | invalid | 002a | 127.0.0.20 | 2026-"
      "11-15 |  20:04:01.123 |    1 |      A |     1 |      0 |    0 |   <none>",
      "example.test.                            | authority | success | 002a | 127.0.0.20 | 2026-"
      "11-15 |  20:04:01.123 |    6 |    SOA |     1 |    300 |   39 | ns1.example.test.; "
      "hostmaster.example.test.; 0x78a498a5; 0x00001c20; 0x00000384; 0x00127500; 0x0000012c",
      "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx;y; | answer    | success | 00af |  127.0.0.1 | 2026-"
      "11-15 |  20:04:01.123 |    1 |      A |     1 | 4294967295 |    4 | 93.184.216.34"}));
}

TEST(table_writer, csv_rows) {
  input_params config;
  config.heading_pending = 1;
  config.csv = 1;
  config.separator = ",";
  config.query_char_from = ',';
  config.query_char_to = ' ';
  DNS_RES_RECORD a = answer(1, {93, 184, 216, 34});
  a.name = "a,b.example.com.";
  std::ostringstream out;
  write_table_row(a, out, "answer", "success", config);
  // -no_whitespace: the blank before the time goes, and the separator loses its blanks.
  config.csv = 0;
  config.csv_layout = 1;
  config.keep_space = 0;
  config.separator = "|";
  config.query_char_from = 0;
  DNS_RES_RECORD soa = answer(6, k_soa_rdata);
  write_table_row(soa, out, "authority", "success", config);
  EXPECT_EQ(lines_of(out.str()), (std::vector<std::string>{
      "query,comment,status,id,DNSserv,date, time-UTC,type,tname,class,ttl,size,data",
      "a b.example.com.,answer,success,af,127.0.0.1,2026-11-15, 20:04:01.123,1,A,1,3600,4,"
      "93.184.216.34",
      "example.com.|authority|success|af|127.0.0.1|2026-11-15|20:04:01.123|6|SOA|1|3600|30|"
      "ns1.example.com.;h.example.com.;0x00000e10;0x00000e10;0x00000384;0x00093a80;0x00000005"}));
}

TEST(xml_writer, one_entry_per_record) {
  reply_records reply;
  ASSERT_TRUE(parse_capture("nsd-mx-several.bin", reply));
  reply.answers[0].name = "a&b<c>.";  // written as it stands
  std::ostringstream out;
  write_xml_entry(reply.answers[0], out, input_params{}, "success");
  EXPECT_EQ(out.str(),
            "<data_entry><query>a&b<c>.</query><status>success</status><packet_id>002a"
            "</packet_id><dns_server>127.0.0.20</dns_server><query_date_utc>2026-11-15"
            "</query_date_utc><query_time_utc>20:04:01.123</query_time_utc><dns_type>15"
            "</dns_type><dns_type_name>MX</dns_type_name><dns_class>1</dns_class><ttl_secs>3600"
            "</ttl_secs><data_length>10</data_length><raw_data_hex>00 0a 05 6d 61 69 6c 31 c0 0c"
            "</raw_data_hex><translated_data  preference=\" 10\" mx_server=\"mail1.example.test."
            "\"></translated_data></data_entry>\n");

  const struct {
    const char* label;
    std::uint16_t type;
    bytes rdata;
    std::string tail;  // the entry from translated_data on
  } cases[] = {
      {"A without data", 1, {}, " >"},
      {"SOA serial without leading zeros", 6, k_soa_rdata,
       "  domain_name=\"ns1.example.com.\" admin_mailbox=\"h.example.com.\" serial_num=\"0xe10\" "
       "refresh_sec=\"3600\" retry_sec=\"900\" expire_sec=\"604800\" min_sec=\"5\">"},
      {"SOA numbers past the end leave the tag open", 6, k_short_soa_rdata, " "},
      {"TXT", 16, {1, 'a'}, " >"},
      {"AAAA", 28, {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01},
       "  ipv6_addr=\"2001:db8::1\">"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::ostringstream entry;
    write_xml_entry(answer(c.type, c.rdata), entry, input_params{}, "success");
    const std::string line = entry.str();
    const std::string tail = "<translated_data" + c.tail + "</translated_data></data_entry>\n";
    ASSERT_GE(line.size(), tail.size());
    EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
  }
}

}  // namespace
