// The built zib against a real authoritative server: nsd serving the zones of tests/data on
// its own 127.0.0.6x address. dig, asking the same server the same question, is the oracle for
// what zib decodes; the report layout is checked line by line with the run's clock and
// random id masked.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/nsd_server.h"
#include "support/process_runner.h"

namespace {

using namespace std::chrono_literals;
using lines = std::vector<std::string>;

std::vector<zone_file> test_zones() {
  const std::string dir = ZIB_TEST_DATA_DIR;
  return {{"example.test", dir + "/example.test.zone"}, {"2.0.192.in-addr.arpa", dir + "/2.0.192.in-addr.arpa.zone"}};
}

#define NSD_OR_SKIP(var, address)           \
  nsd_server var(address, test_zones());    \
  if (std::string why; !var.start(why)) GTEST_SKIP() << why

lines split(const std::string& text, char sep, std::size_t max_fields = std::string::npos) {
  lines out;
  std::size_t at = 0;
  for (std::size_t next; out.size() + 1 < max_fields && (next = text.find(sep, at)) != std::string::npos; at = next + 1)
    out.push_back(text.substr(at, next - at));
  if (at < text.size() || sep != '\n') out.push_back(text.substr(at));
  return out;
}

// dig's presentation of RDATA turned into zib's CSV data column: MX and SOA fields joined by
// ";", SOA numbers as 0x and eight hex digits, TXT as the raw strings with their length octets
// in front and line ends as blanks.
std::string as_zib_data(const std::string& type, const std::string& data) {
  if (type == "MX") return std::regex_replace(data, std::regex(" "), ";");
  if (type == "SOA") {
    auto f = split(data, ' ');
    std::string out = f.at(0) + ";" + f.at(1);
    char hex[16];
    for (std::size_t i = 2; i < f.size(); ++i) {
      std::snprintf(hex, sizeof hex, ";0x%08lx", std::stoul(f[i]));
      out += hex;
    }
    return out;
  }
  if (type == "TXT") {
    std::string out;
    const std::regex quoted("\"([^\"]*)\"");
    for (std::sregex_iterator it(data.begin(), data.end(), quoted), end; it != end; ++it)
      out += static_cast<char>((*it)[1].length()) + (*it)[1].str();
    for (char& c : out)
      if (c == '\r' || c == '\n') c = ' ';
    return out;
  }
  return data;
}

// dig's sections as "section,owner,ttl,type,data" rows; a question left without an answer is
// the "invalid" question row zib writes (a CNAME question never gets one).
lines dig_rows(const std::string& server, const std::string& name, const std::string& type) {
  const auto r = run_process({"/usr/bin/dig", "@" + server, "+norec", "+noedns", "+time=2", "+tries=1", name, type},
                             "", 10s);
  const std::vector<std::pair<std::string, std::string>> sections = {
      {";; ANSWER SECTION:", "answer"}, {";; AUTHORITY SECTION:", "authority"}, {";; ADDITIONAL SECTION:", "additions"}};
  lines rows;
  std::string section, question;
  for (const auto& line : split(r.out, '\n')) {
    if (line == ";; QUESTION SECTION:") section = "question";
    for (const auto& [heading, word] : sections)
      if (line == heading) section = word;
    if (line.empty() || section.empty()) {
      section.clear();
      continue;
    }
    if (line.starts_with(";;")) continue;
    // dig pads with tabs, or one blank after a long owner name; the data keeps its blanks.
    std::istringstream fields(line);
    std::string owner, ttl, class_, type, data;
    fields >> owner >> ttl >> class_ >> type >> std::ws;
    std::getline(fields, data);
    if (section == "question") question = owner.substr(1);
    if (section != "question") rows.push_back(section + "," + owner + "," + ttl + "," + type + "," + as_zib_data(type, data));
  }
  if (type != "CNAME" && (rows.empty() || !rows.front().starts_with("answer,")))
    rows.insert(rows.begin(), "question," + question + ",invalid");
  return rows;
}

// zib's CSV rows in the same shape; every record row must be class 1 and "success".
lines zib_rows(const std::string& server, const std::string& lookup, const std::string& name) {
  const auto r = run_zib({lookup, name, "-server", server, "-csv"}, "", 10s);
  EXPECT_EQ(r.status, 0);
  lines rows;
  const auto all = split(r.out, '\n');
  for (std::size_t i = 2; i < all.size(); ++i) {  // after the run header and the heading
    const auto f = split(all[i], ',', 13);
    if (f.size() != 13) {
      ADD_FAILURE() << "not a CSV row: " << all[i];
    } else if (f[1] == "question") {
      rows.push_back("question," + f[0] + "," + f[2]);
    } else {
      EXPECT_EQ(f[2] + " " + f[9], "success 1") << all[i];
      rows.push_back(f[1] + "," + f[0] + "," + f[10] + "," + f[8] + "," + f[12]);
    }
  }
  return rows;
}

TEST(interop, every_lookup_kind_decodes_what_dig_reads) {
  NSD_OR_SKIP(nsd, "127.0.0.60");
  struct lookup_case {
    const char* lookup;
    const char* name;
    const char* dig_name;
    const char* dig_type;
  } cases[] = {
      {"-url", "www.example.test", "www.example.test", "A"},
      {"-url", "alias.example.test", "alias.example.test", "A"},       // CNAME chain to the A
      {"-url", "host.sub.example.test", "host.sub.example.test", "A"},  // referral: no answer
      {"-url", "nope.example.test", "nope.example.test", "A"},          // NXDOMAIN and the SOA
      {"-ip", "192.0.2.10", "10.2.0.192.in-addr.arpa", "PTR"},
      {"-mx", "example.test", "example.test", "MX"},
      {"-ns", "example.test", "example.test", "NS"},
      {"-cname", "alias.example.test", "alias.example.test", "CNAME"},
      {"-cname", "www.example.test", "www.example.test", "CNAME"},  // no answer, no question row
      {"-txt", "example.test", "example.test", "TXT"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.lookup) + " " + c.name);
    const auto expected = dig_rows(nsd.address(), c.dig_name, c.dig_type);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(zib_rows(nsd.address(), c.lookup, c.name), expected);
  }
}

// The run's clock and random id (10..99) masked: {D}, {T}, {ID}.
std::string masked(std::string text) {
  text = std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\d)"), "{D}");
  text = std::regex_replace(text, std::regex(R"(\d\d:\d\d:\d\d\.\d{3})"), "{T}");
  text = std::regex_replace(text, std::regex(R"((\| |<packet_id>)00[0-6][0-9a-f]\b)"), "$1{ID}");
  return std::regex_replace(text, std::regex(R"(,[1-6]?[0-9a-f](,127\.0\.0\.61,))"), ",{ID}$1");
}

std::string xml_entry(const std::string& query, const std::string& status, const std::string& type_ttl_size,
                      const std::string& hex, const std::string& attributes) {
  const auto f = split(type_ttl_size, ' ');
  return "<data_entry><query>" + query + "</query><status>" + status +
         "</status><packet_id>{ID}</packet_id><dns_server>127.0.0.61</dns_server><query_date_utc>{D}</query_date_utc>"
         "<query_time_utc>{T}</query_time_utc><dns_type>" + f[0] + "</dns_type><dns_type_name>" + f[1] +
         "</dns_type_name><dns_class>1</dns_class><ttl_secs>" + f[2] + "</ttl_secs><data_length>" + f[3] +
         "</data_length><raw_data_hex>" + hex + "</raw_data_hex><translated_data " + attributes +
         "></translated_data></data_entry>";
}

// Two piped names, one answered and one missing, in each format: one heading for the run,
// every row whole.
TEST(interop, piped_rows_in_text_csv_and_xml) {
  NSD_OR_SKIP(nsd, "127.0.0.61");
  const std::string soa = "ns1.example.test.;hostmaster.example.test.;0x78a498a5;0x00001c20;0x00000384;0x00127500;0x0000012c";
  const std::string pad = " | {ID} | 127.0.0.61 | {D} |  {T} | ";
  const std::string csv = ",{ID},127.0.0.61,{D}, {T},";
  const std::string ns_hex = "03 6e 73 3";
  struct format_case {
    const char* format;
    lines expected;  // after the run header
  } cases[] = {
      {"-text",
       {"query                                    | comment   | status  | id   | DNSserv    | date       |  time-UTC     "
        "| type | tname  | class | ttl    | size | data",
        "www.example.test.                        | answer    | success" + pad + "   1 |      A |     1 |   3600 |    4 | 192.0.2.10",
        "example.test.                            | authority | success" + pad + "   2 |     NS |     1 |   3600 |    6 | ns1.example.test.",
        "example.test.                            | authority | success" + pad + "   2 |     NS |     1 |   3600 |    6 | ns2.example.test.",
        "ns1.example.test.                        | additions | success" + pad + "   1 |      A |     1 |   3600 |    4 | 127.0.0.20",
        "ns2.example.test.                        | additions | success" + pad + "   1 |      A |     1 |   3600 |    4 | 192.0.2.2",
        "nope.example.test.                       | question  | invalid" + pad + "   1 |      A |     1 |      0 |    0 |   <none>",
        "example.test.                            | authority | success" + pad + "   6 |    SOA |     1 |    300 |   39 | " +
            std::regex_replace(soa, std::regex(";"), "; ")}},
      {"-csv",
       {"query,comment,status,id,DNSserv,date, time-UTC,type,tname,class,ttl,size,data",
        "www.example.test.,answer,success" + csv + "1,A,1,3600,4,192.0.2.10",
        "example.test.,authority,success" + csv + "2,NS,1,3600,6,ns1.example.test.",
        "example.test.,authority,success" + csv + "2,NS,1,3600,6,ns2.example.test.",
        "ns1.example.test.,additions,success" + csv + "1,A,1,3600,4,127.0.0.20",
        "ns2.example.test.,additions,success" + csv + "1,A,1,3600,4,192.0.2.2",
        "nope.example.test.,question,invalid" + csv + "1,A,1,0,0,  <none>",
        "example.test.,authority,success" + csv + "6,SOA,1,300,39," + soa}},
      {"-xml",
       {"<?xml version=\"1.0\" encoding=\"utf-8\"?>", "", "<logdata tool=\"zib\" cmdline=\"" ZIB_BINARY "\">",
        xml_entry("www.example.test.", "success", "1 A 3600 4", "c0 00 02 0a", " ipv4_addr=\"192.0.2.10\""),
        xml_entry("example.test.", "success", "2 NS 3600 6", ns_hex + "1 c0 10", " domain_name=\"ns1.example.test.\""),
        xml_entry("example.test.", "success", "2 NS 3600 6", ns_hex + "2 c0 10", " domain_name=\"ns2.example.test.\""),
        xml_entry("ns1.example.test.", "success", "1 A 3600 4", "7f 00 00 14", " ipv4_addr=\"127.0.0.20\""),
        xml_entry("ns2.example.test.", "success", "1 A 3600 4", "c0 00 02 02", " ipv4_addr=\"192.0.2.2\""),
        xml_entry("nope.example.test.", "invalid", "1 A 0 0", "", ""),
        xml_entry("example.test.", "success", "6 SOA 300 39",
                  "03 6e 73 31 c0 11 0a 68 6f 73 74 6d 61 73 74 65 72 c0 11 78 a4 98 a5 00 00 1c 20 00 00 03 84 00 12 "
                  "75 00 00 00 01 2c",
                  " domain_name=\"ns1.example.test.\" admin_mailbox=\"hostmaster.example.test.\" serial_num=\"0x78a498a5\" "
                  "refresh_sec=\"7200\" retry_sec=\"900\" expire_sec=\"1209600\" min_sec=\"300\""),
        "</logdata>"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.format);
    std::vector<std::string> args = {"-url_pipe", "-server", nsd.address()};
    if (std::string(c.format) != "-text") args.push_back(c.format);
    const auto r = run_zib(args, "www.example.test\nnope.example.test\n", 10s);
    EXPECT_EQ(r.status, 0);
    auto got = split(masked(r.out), '\n');
    ASSERT_FALSE(got.empty());
    got.erase(got.begin());
    EXPECT_EQ(got, c.expected);
  }
}

}  // namespace
