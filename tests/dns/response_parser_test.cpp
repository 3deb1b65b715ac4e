#include "dns/response_parser.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "dns/record_types.h"

namespace {

using bytes = std::vector<std::uint8_t>;

bytes operator+(bytes a, const bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct parsed {
  unsigned result = 0;
  std::uint16_t id = 0xbeef;  // stays when the message is refused
  std::vector<DNS_RES_RECORD> q, an, ns, ar;
};

parsed parse(const bytes& msg, const std::string* server = nullptr) {
  parsed p;
  p.result = parse_response(server, 1234, msg, p.id, p.q, p.an, p.ns, p.ar);
  return p;
}

// One record as dig prints it, its data read the way the renderers read it.
std::string dig_line(const DNS_RES_RECORD& r, bool question) {
  std::ostringstream out;
  out << (question ? ";" : "") << r.name << ' ';
  if (!question) out << r.ttl << ' ';
  out << (r.class_ == 1 ? "IN" : "?") << ' ' << record_type_name(r.type);
  if (question) return out.str();
  std::string name;
  SOA_RDATA soa;
  char aaaa[INET6_ADDRSTRLEN] = {};
  const auto d = r.rdata;
  switch (r.type) {
    case k_type_a: out << ' ' << +d.at(0) << '.' << +d.at(1) << '.' << +d.at(2) << '.' << +d.at(3); break;
    case k_type_mx: out << ' ' << (d.at(0) << 8 | d.at(1)); [[fallthrough]];
    case k_type_ns: case k_type_cname: case k_type_ptr:
      EXPECT_NE(decode_name(r.packet, std::uint16_t(r.rdata_offset + (r.type == k_type_mx ? 2 : 0)), name), 0u);
      out << ' ' << name;
      break;
    case k_type_soa:
      EXPECT_TRUE(decode_soa(r.packet, r.rdata_offset, soa));
      out << ' ' << soa.name_server << ' ' << soa.admin_mailbox << ' ' << soa.serial << ' ' << soa.refresh << ' '
          << soa.retry << ' ' << soa.expire << ' ' << soa.minimum;
      break;
    case k_type_aaaa: out << ' ' << inet_ntop(AF_INET6, d.data(), aaaa, sizeof aaaa); break;
    case k_type_txt:
      for (std::size_t i = 0; i < d.size(); i += 1u + d[i]) out << " \"" << std::string(&d[i + 1], &d[i + 1] + d[i]) << '"';
      break;
  }
  return out.str();
}

// dig-oracle.txt: "=== <file>: ..." then dig's lines for that reply, whitespace collapsed.
std::map<std::string, std::vector<std::string>> read_oracle() {
  std::map<std::string, std::vector<std::string>> oracle;
  std::ifstream in(std::filesystem::path(ZIB_TEST_DATA_DIR) / "dig-oracle.txt");
  std::string line, file;
  while (std::getline(in, line)) {
    if (line.rfind("=== ", 0) == 0) file = line.substr(4, line.find(':') - 4);
    if (line.rfind("===", 0) == 0 || line.rfind(";; ->>", 0) == 0 || line.rfind(";; flags", 0) == 0) continue;
    std::istringstream words(line);
    std::string word, joined;
    while (words >> word) joined += (joined.empty() ? "" : " ") + word;
    oracle[file].push_back(joined);
  }
  return oracle;
}

TEST(parse_response, captured_replies_read_as_dig_reads_them) {
  const auto oracle = read_oracle();
  ASSERT_GE(oracle.size(), 11u) << "tests/data/dig-oracle.txt missing or short";
  const std::string server = "127.0.0.20";
  for (const auto& [file, expected] : oracle) {
    SCOPED_TRACE(file);
    std::ifstream in(std::filesystem::path(ZIB_TEST_DATA_DIR) / file, std::ios::binary);
    const bytes msg(std::istreambuf_iterator<char>(in), {});
    const parsed p = parse(msg, &server);
    EXPECT_EQ(p.result, msg.size());  // nsd's replies hold exactly their counted records
    EXPECT_EQ(p.id, 42);              // 2a 00, read low byte first
    std::vector<std::string> lines;
    const char* headings[] = {";; QUESTION SECTION:", ";; ANSWER SECTION:", ";; AUTHORITY SECTION:", ";; ADDITIONAL SECTION:"};
    const std::vector<DNS_RES_RECORD>* lists[] = {&p.q, &p.an, &p.ns, &p.ar};
    for (int s = 0; s < 4; ++s) {
      if (!lists[s]->empty()) lines.push_back(headings[s]);
      for (const auto& r : *lists[s]) {
        lines.push_back(dig_line(r, s == 0));
        EXPECT_TRUE(r.packet == msg && r.server == server && r.timestamp == 1234 && r.id == 42);
        ASSERT_LE(r.rdata_offset + r.rdlength, msg.size());
        EXPECT_EQ(r.rdata, bytes(msg.begin() + r.rdata_offset, msg.begin() + r.rdata_offset + r.rdlength));
      }
    }
    EXPECT_EQ(lines, expected);
  }
}

bytes header(std::uint8_t flags, std::uint8_t qd, std::uint8_t an, std::uint8_t ns, std::uint8_t ar) {
  return {0x2a, 0x00,  // ID 42, low byte first
          flags, 0x80, 0, qd, 0, an, 0, ns, 0, ar};
}

const bytes k_question = {1, 'q', 0,               // q. at 12
                          0x00, 0x01, 0x00, 0x01};  // A IN
const bytes k_fixed_a = {0x00, 0x01, 0x00, 0x01,   // A IN
                         0x00, 0x00, 0x0e, 0x10,   // TTL 3600
                         0x00, 0x04};              // RDLENGTH 4
const bytes k_answer = bytes{0xc0, 12} + k_fixed_a + bytes{192, 0, 2, 1};  // 16 bytes

TEST(parse_response, hostile_and_short_messages) {
  struct row {
    const char* label;
    bytes msg;
    unsigned result;
    std::size_t q, an, ns, ar;
  };
  const row rows[] = {
      {"QR bit 0 is refused before anything is read", header(0x01, 1, 0, 0, 0) + k_question, 0, 0, 0, 0, 0},
      {"12-byte reply with QDCOUNT 1", header(0x81, 1, 0, 0, 0), 12, 0, 0, 0, 0},
      {"all counts 0, trailing bytes ignored", header(0x81, 0, 0, 0, 0) + k_question, 12, 0, 0, 0, 0},
      {"datagram shorter than a header reads zero counts", {0x2a, 0x00, 0x81}, 12, 0, 0, 0, 0},
      {"counts larger than the data", header(0x81, 1, 5, 5, 5) + k_question + k_answer, 35, 1, 1, 0, 0},
      {"trailing bytes after the counted records", header(0x81, 1, 1, 0, 0) + k_question + k_answer + bytes{0}, 35, 1, 1, 0, 0},
      {"each section into its own list", header(0x81, 1, 1, 1, 1) + k_question + k_answer + k_answer + k_answer, 67, 1, 1, 1, 1},
      {"rdlength exactly to the end", header(0x81, 1, 1, 0, 0) + k_question + bytes{0xc0, 12} + k_fixed_a + bytes{1, 2, 3, 4},
       35, 1, 1, 0, 0},
      {"rdlength one past the end keeps earlier records",
       header(0x81, 1, 2, 0, 0) + k_question + k_answer + bytes{0xc0, 12} + k_fixed_a + bytes{1, 2, 3}, 0, 1, 1, 0, 0},
      {"answer fixed part cut short", header(0x81, 1, 1, 0, 0) + k_question + bytes{0xc0, 12, 0, 1, 0, 1}, 0, 1, 0, 0, 0},
      {"pointer to itself in the question", header(0x81, 1, 0, 0, 0) + bytes{0xc0, 12, 0, 1, 0, 1}, 0, 0, 0, 0, 0},
      {"pointer to itself in an answer", header(0x81, 1, 1, 0, 0) + k_question + bytes{0xc0, 19} + k_fixed_a, 0, 1, 0, 0, 0},
      {"two-pointer loop in an answer", header(0x81, 1, 1, 0, 0) + k_question + bytes{0xc0, 21, 0xc0, 19} + k_fixed_a, 0, 1, 0, 0, 0},
      {"pointer past the end in an additional name",
       header(0x81, 1, 1, 1, 1) + k_question + k_answer + k_answer + bytes{0xc0, 0xff} + k_fixed_a, 0, 1, 1, 1, 0},
      {"forward pointer in an owner name", header(0x81, 0, 1, 0, 0) + bytes{0xc0, 28} + k_fixed_a + bytes{1, 2, 3, 4, 1, 'f', 0},
       28, 0, 1, 0, 0},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    const parsed p = parse(r.msg);
    EXPECT_EQ(p.result, r.result);
    EXPECT_EQ(std::vector<std::size_t>({p.q.size(), p.an.size(), p.ns.size(), p.ar.size()}),
              std::vector<std::size_t>({r.q, r.an, r.ns, r.ar}));
    EXPECT_EQ(p.id, r.msg[2] == 0x01 ? 0xbeef : 42);
  }
}

TEST(parse_response, question_cut_short_reads_zeros) {
  const parsed p = parse(header(0x81, 1, 0, 0, 0) + bytes{0x00, 0x01});  // root name, one byte of QTYPE
  EXPECT_EQ(p.result, 17u);
  ASSERT_EQ(p.q.size(), 1u);
  EXPECT_EQ(p.q[0].type, 0x0100);
  EXPECT_EQ(p.q[0].class_, 0);
}

}  // namespace
