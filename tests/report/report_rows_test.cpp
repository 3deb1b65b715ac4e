// Record data, text rows, CSV rows and XML entries, compared as whole lines.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "params/input_params.h"
#include "report/record_data.h"
#include "report/table_writer.h"
#include "report/xml_writer.h"
#include "time/clock.h"

namespace {

using bytes = std::vector<std::uint8_t>;

// 2026-11-15 20:04:01.123456 UTC.
constexpr std::uint64_t k_when = timestamp_from_unix(1794773041, 123456);

// A reply for example.com holding one answer of `type` with `rdata`, laid out as a server
// compresses it, so names in the data can point back at the question name (offset 12).
DNS_RES_RECORD answer(std::uint16_t type, const bytes& rdata, std::uint32_t ttl = 3600) {
  DNS_RES_RECORD record;
  record.packet = {
      0xaf, 0x00,                                            // ID: id 0x00af, low byte first
      0x81, 0x80,                                            // QR RD RA, NOERROR
      0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00,        // QD 1, AN 1, NS 0, AR 0
      7, 'e', 'x', 'a', 'm', 'p', 'l', 'e', 3, 'c', 'o', 'm', 0,  // offset 12: example.com
      0x00, 0x01, 0x00, 0x01,                                // QTYPE A, QCLASS IN
      0xc0, 0x0c,                                            // owner: pointer to offset 12
      static_cast<std::uint8_t>(type >> 8), static_cast<std::uint8_t>(type),
      0x00, 0x01,                                            // CLASS IN
      static_cast<std::uint8_t>(ttl >> 24), static_cast<std::uint8_t>(ttl >> 16),
      static_cast<std::uint8_t>(ttl >> 8), static_cast<std::uint8_t>(ttl),
      static_cast<std::uint8_t>(rdata.size() >> 8), static_cast<std::uint8_t>(rdata.size()),
  };
  record.rdata_offset = static_cast<std::uint32_t>(record.packet.size());  // 41
  record.packet.insert(record.packet.end(), rdata.begin(), rdata.end());
  record.server = "127.0.0.1";
  record.name = "example.com.";
  record.type = type;
  record.class_ = 1;
  record.ttl = ttl;
  record.rdlength = static_cast<std::uint16_t>(rdata.size());
  record.timestamp = k_when;
  record.id = 0x00af;
  record.rdata = rdata;
  return record;
}

const bytes k_soa_rdata = {
    3, 'n', 's', '1', 0xc0, 0x0c,                               // MNAME ns1.example.com.
    10, 'h', 'o', 's', 't', 'm', 'a', 's', 't', 'e', 'r', 0xc0, 0x0c,  // RNAME
    0x78, 0xa1, 0xb2, 0xc3,                                     // serial 2023862979
    0x00, 0x00, 0x0e, 0x10,                                     // refresh 3600
    0x00, 0x00, 0x03, 0x84,                                     // retry 900
    0x00, 0x09, 0x3a, 0x80,                                     // expire 604800
    0x00, 0x00, 0x0e, 0x10,                                     // minimum 3600
};
// Both names decode but the five numbers would run past the end of the message.
const bytes k_short_soa_rdata = {3, 'n', 's', '1', 0xc0, 0x0c, 0xc0, 0x0c, 0, 0, 0, 1};
const bytes k_mx_rdata = {0x00, 0x0a, 4, 'm', 'a', 'i', 'l', 0xc0, 0x0c};
const bytes k_aaaa_rdata = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01};

std::string data_text(const DNS_RES_RECORD& record, std::string_view field_sep) {
  std::ostringstream out;
  write_record_data(out, record, field_sep);
  return out.str();
}

TEST(record_data, renders_each_type_and_falls_back_to_hex) {
  const struct {
    const char* label;
    std::uint16_t type;
    bytes rdata;
    std::string text;  // with the text report's field separator "; "
    std::string csv;   // with the CSV field separator ";"; empty: same as text
  } cases[] = {
      {"A", 1, {93, 184, 216, 34}, "93.184.216.34", ""},
      {"A of six bytes", 1, {1, 2, 3, 4, 5, 6}, "01 02 03 04 05 06", ""},
      {"NS", 2, {0xc0, 0x0c}, "example.com.", ""},
      {"CNAME", 5, {3, 'w', 'w', 'w', 0xc0, 0x0c}, "www.example.com.", ""},
      {"PTR", 12, {4, 'h', 'o', 's', 't', 0}, "host.", ""},
      {"NS pointing past the end", 2, {0xc0, 0xff}, "c0 ff", ""},
      {"MX", 15, k_mx_rdata, "10; mail.example.com.", "10;mail.example.com."},
      {"MX with an unreadable name keeps its preference", 15, {0x00, 0x0a, 0xc0, 0xff},
       "10; 00 0a c0 ff", "10;00 0a c0 ff"},
      {"SOA", 6, k_soa_rdata,
       "ns1.example.com.; hostmaster.example.com.; 0x78a1b2c3; 0x00000e10; 0x00000384; "
       "0x00093a80; 0x00000e10",
       "ns1.example.com.;hostmaster.example.com.;0x78a1b2c3;0x00000e10;0x00000384;0x00093a80;"
       "0x00000e10"},
      {"SOA cut short", 6, k_short_soa_rdata, "03 6e 73 31 c0 0c c0 0c 00 00 00 01", ""},
      {"TXT with CR LF", 16, {4, 'a', '\r', '\n', 'b'}, "\x04" "a  b", ""},
      {"AAAA", 28, k_aaaa_rdata, "2001:db8:0:0:0:0:0:1", ""},
      {"AAAA of zeros", 28, bytes(16, 0), "0:0:0:0:0:0:0:0", ""},
      {"AAAA odd byte dropped", 28, {0x00, 0xff, 0x12}, "ff", ""},
      {"AAAA of one byte", 28, {0x12}, "", ""},
      {"HINFO shown raw", 13, {0x01, 'x'}, "01 78", ""},
      {"type without a name", 65, {0x00, 0xab, 0xff}, "00 ab ff", ""},
      {"no data", 1, {}, "  <none>", ""},
      {"no data, any type", 15, {}, "  <none>", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const DNS_RES_RECORD record = answer(c.type, c.rdata);
    EXPECT_EQ(data_text(record, "; "), c.text);
    EXPECT_EQ(data_text(record, ";"), c.csv.empty() ? c.text : c.csv);
  }
}

TEST(record_data, string_form_has_no_hex_fallback) {
  const struct {
    const char* label;
    std::uint16_t type;
    bytes rdata;
    bool result;
    std::string text;
  } cases[] = {
      {"A", 1, {10, 0, 0, 1}, true, "10.0.0.1"},
      {"A of six bytes", 1, {1, 2, 3, 4, 5, 6}, true, ""},
      {"CNAME", 5, {3, 'w', 'w', 'w', 0xc0, 0x0c}, true, "www.example.com."},
      {"NS unreadable", 2, {0xc0, 0xff}, true, ""},
      {"MX name only", 15, k_mx_rdata, true, "mail.example.com."},
      {"TXT unchanged", 16, {4, 'a', '\r', '\n', 'b'}, true, "\x04" "a\r\nb"},
      {"AAAA", 28, k_aaaa_rdata, true, "2001:db8:0:0:0:0:0:1"},
      {"SOA", 6, k_soa_rdata, false, ""},
      {"other", 99, {1, 2}, true, ""},
      {"no data", 1, {}, false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::string out = "stale";
    EXPECT_EQ(record_data_string(answer(c.type, c.rdata), out), c.result);
    EXPECT_EQ(out, c.text);
  }
}

TEST(record_data, soa_heading_and_line) {
  SOA_RDATA soa{"ns1.example.net", "hostmaster.example.net", 2023862979, 3600, 900, 604800, 3600};
  std::ostringstream out;
  write_soa(soa, out, " | ", true);
  EXPECT_EQ(out.str(),
            "   name server  |    admin mailbox  | serial# | refresh | retry | expire | minimum\n\n"
            "ns1.example.net | hostmaster.example.net | 0x78a1b2c3 | 0x00000e10 | 0x00000384 | "
            "0x00093a80 | 0x00000e10");
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

input_params text_config() {
  input_params config;
  config.server = "127.0.0.1";  // the DNS server column is as wide as this text
  config.heading_pending = 1;
  return config;
}

TEST(table_writer, text_rows_under_one_heading) {
  input_params config = text_config();
  std::ostringstream out;
  out << std::hex << std::setfill('*');  // whatever was left behind must not show
  DNS_RES_RECORD a = answer(1, {93, 184, 216, 34}, 4294967295u);
  DNS_RES_RECORD mx = answer(15, k_mx_rdata);
  mx.name = "a|b.example.com.";
  DNS_RES_RECORD soa = answer(6, k_soa_rdata);
  soa.name = std::string(45, 'x');
  write_table_row(a, out, "answer", "success", config);
  write_table_row(mx, out, "answer", "success", config);
  write_table_row(soa, out, "authority", "success", config);
  EXPECT_EQ(config.heading_pending, 0);
  EXPECT_EQ(mx.name, "a;b.example.com.");
  const std::vector<std::string> expected = {
      "query                                    | comment   | status  | id   | DNSserv   | date       "
      "|  time-UTC     | type | tname  | class | ttl    | size | data",
      "example.com.                             | answer    | success | 00af | 127.0.0.1 | 2026-11-15 "
      "|  20:04:01.123 |    1 |      A |     1 | 4294967295 |    4 | 93.184.216.34",
      "a;b.example.com.                         | answer    | success | 00af | 127.0.0.1 | 2026-11-15 "
      "|  20:04:01.123 |   15 |     MX |     1 |   3600 |    9 | 10; mail.example.com.",
      "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx | authority | success | 00af | 127.0.0.1 | "
      "2026-11-15 |  20:04:01.123 |    6 |    SOA |     1 |   3600 |   39 | ns1.example.com.; "
      "hostmaster.example.com.; 0x78a1b2c3; 0x00000e10; 0x00000384; 0x00093a80; 0x00000e10",
  };
  EXPECT_EQ(lines_of(out.str()), expected);
}

TEST(table_writer, query_row_of_a_failed_attempt) {
  input_params config = text_config();
  config.heading_pending = 0;
  config.server = "8.8.8.8";  // narrower than the record's server: nothing is cut
  DNS_RES_RECORD query;
  query.name = "nothing.test";
  query.server = "127.0.0.1";
  query.id = 0x0042;
  query.type = 16;
  query.class_ = 1;
  query.timestamp = k_when;
  std::ostringstream out;
  write_table_row(query, out, "question", "timeout", config);
  EXPECT_EQ(out.str(),
            "nothing.test                             | question  | timeout | 0042 | 127.0.0.1 | "
            "2026-11-15 |  20:04:01.123 |   16 |    TXT |     1 |      0 |    0 |   <none>\n");
}

TEST(table_writer, csv_rows) {
  input_params config = text_config();
  config.csv = 1;
  config.separator = ",";
  config.query_char_from = ',';
  config.query_char_to = ' ';
  DNS_RES_RECORD a = answer(1, {93, 184, 216, 34});
  a.name = "a,b.example.com.";
  DNS_RES_RECORD soa = answer(6, k_soa_rdata);
  std::ostringstream out;
  write_table_row(a, out, "answer", "success", config);
  // -no_whitespace: the blank before the time goes, and the separator loses its blanks.
  config.csv = 0;
  config.csv_layout = 1;
  config.keep_space = 0;
  config.separator = "|";
  config.query_char_from = 0;
  write_table_row(soa, out, "authority", "success", config);
  const std::vector<std::string> expected = {
      "query,comment,status,id,DNSserv,date, time-UTC,type,tname,class,ttl,size,data",
      "a b.example.com.,answer,success,af,127.0.0.1,2026-11-15, 20:04:01.123,1,A,1,3600,4,"
      "93.184.216.34",
      "example.com.|authority|success|af|127.0.0.1|2026-11-15|20:04:01.123|6|SOA|1|3600|39|"
      "ns1.example.com.;hostmaster.example.com.;0x78a1b2c3;0x00000e10;0x00000384;0x00093a80;"
      "0x00000e10",
  };
  EXPECT_EQ(lines_of(out.str()), expected);
}

TEST(xml_writer, one_entry_per_record) {
  const std::string head =
      "<data_entry><query>example.com.</query><status>success</status><packet_id>00af"
      "</packet_id><dns_server>127.0.0.1</dns_server><query_date_utc>2026-11-15</query_date_utc>"
      "<query_time_utc>20:04:01.123</query_time_utc>";
  const struct {
    const char* label;
    std::uint16_t type;
    bytes rdata;
    std::string tail;  // from dns_type on
  } cases[] = {
      {"A", 1, {93, 184, 216, 34},
       "<dns_type>1</dns_type><dns_type_name>A</dns_type_name><dns_class>1</dns_class><ttl_secs>"
       "3600</ttl_secs><data_length>4</data_length><raw_data_hex>5d b8 d8 22</raw_data_hex>"
       "<translated_data  ipv4_addr=\"93.184.216.34\"></translated_data></data_entry>"},
      {"A without data", 1, {},
       "<dns_type>1</dns_type><dns_type_name>A</dns_type_name><dns_class>1</dns_class><ttl_secs>"
       "3600</ttl_secs><data_length>0</data_length><raw_data_hex></raw_data_hex>"
       "<translated_data ></translated_data></data_entry>"},
      {"CNAME", 5, {3, 'w', 'w', 'w', 0xc0, 0x0c},
       "<dns_type>5</dns_type><dns_type_name>CNAME</dns_type_name><dns_class>1</dns_class>"
       "<ttl_secs>3600</ttl_secs><data_length>6</data_length><raw_data_hex>03 77 77 77 c0 0c"
       "</raw_data_hex><translated_data  domain_name=\"www.example.com.\"></translated_data>"
       "</data_entry>"},
      {"MX", 15, k_mx_rdata,
       "<dns_type>15</dns_type><dns_type_name>MX</dns_type_name><dns_class>1</dns_class>"
       "<ttl_secs>3600</ttl_secs><data_length>9</data_length><raw_data_hex>00 0a 04 6d 61 69 6c "
       "c0 0c</raw_data_hex><translated_data  preference=\" 10\" mx_server=\"mail.example.com.\">"
       "</translated_data></data_entry>"},
      {"SOA", 6, k_soa_rdata,
       "<dns_type>6</dns_type><dns_type_name>SOA</dns_type_name><dns_class>1</dns_class>"
       "<ttl_secs>3600</ttl_secs><data_length>39</data_length><raw_data_hex>03 6e 73 31 c0 0c 0a "
       "68 6f 73 74 6d 61 73 74 65 72 c0 0c 78 a1 b2 c3 00 00 0e 10 00 00 03 84 00 09 3a 80 00 00 "
       "0e 10</raw_data_hex><translated_data  domain_name=\"ns1.example.com.\" admin_mailbox="
       "\"hostmaster.example.com.\" serial_num=\"0x78a1b2c3\" refresh_sec=\"3600\" retry_sec="
       "\"900\" expire_sec=\"604800\" min_sec=\"3600\"></translated_data></data_entry>"},
      {"SOA cut short leaves the tag open", 6, k_short_soa_rdata,
       "<dns_type>6</dns_type><dns_type_name>SOA</dns_type_name><dns_class>1</dns_class>"
       "<ttl_secs>3600</ttl_secs><data_length>12</data_length><raw_data_hex>03 6e 73 31 c0 0c c0 "
       "0c 00 00 00 01</raw_data_hex><translated_data </translated_data></data_entry>"},
      {"TXT", 16, {2, '<', '&'},
       "<dns_type>16</dns_type><dns_type_name>TXT</dns_type_name><dns_class>1</dns_class>"
       "<ttl_secs>3600</ttl_secs><data_length>3</data_length><raw_data_hex>02 3c 26"
       "</raw_data_hex><translated_data ></translated_data></data_entry>"},
      {"AAAA", 28, k_aaaa_rdata,
       "<dns_type>28</dns_type><dns_type_name>AAAA</dns_type_name><dns_class>1</dns_class>"
       "<ttl_secs>3600</ttl_secs><data_length>16</data_length><raw_data_hex>20 01 0d b8 00 00 00 "
       "00 00 00 00 00 00 00 00 01</raw_data_hex><translated_data  ipv6_addr=\"2001:db8::1\">"
       "</translated_data></data_entry>"},
  };
  const input_params config;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::ostringstream out;
    write_xml_entry(answer(c.type, c.rdata), out, config, "success");
    EXPECT_EQ(out.str(), head + c.tail + "\n");
  }
}

TEST(xml_writer, text_goes_in_unescaped_and_serial_unpadded) {
  bytes rdata = k_soa_rdata;
  rdata[19] = rdata[20] = 0;  // serial 0x00000e10
  rdata[21] = 0x0e;
  rdata[22] = 0x10;
  DNS_RES_RECORD soa = answer(6, rdata);
  soa.name = "a&b<c>.";
  std::ostringstream out;
  write_xml_entry(soa, out, input_params{}, "success");
  EXPECT_NE(out.str().find("<query>a&b<c>.</query>"), std::string::npos);
  EXPECT_NE(out.str().find(" serial_num=\"0xe10\" "), std::string::npos);
}

}  // namespace
