#include "dns/response_parser.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "dns/record_types.h"

namespace {

using bytes = std::vector<std::uint8_t>;

struct parsed {
  unsigned result = 0;
  std::uint16_t id = 0xbeef;  // stays when the message is refused
  std::vector<DNS_RES_RECORD> q, an, ns, ar;
};

parsed parse(const bytes& msg, const std::string* server = nullptr, std::uint64_t when = 0) {
  parsed p;
  p.result = parse_response(server, when, msg, p.id, p.q, p.an, p.ns, p.ar);
  return p;
}

bytes read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return bytes(std::istreambuf_iterator<char>(in), {});
}

// --- captured replies, checked against dig's reading of the same answers -----------------

std::string join_tokens(const std::string& line) {
  std::istringstream in(line);
  std::string token, out;
  while (in >> token) out += (out.empty() ? "" : " ") + token;
  return out;
}

// Record data in dig's presentation, read the way the renderers read it.
std::string dig_data(const DNS_RES_RECORD& r) {
  std::string name;
  std::ostringstream out;
  switch (r.type) {
    case k_type_a:
      out << +r.rdata.at(0) << '.' << +r.rdata.at(1) << '.' << +r.rdata.at(2) << '.' << +r.rdata.at(3);
      break;
    case k_type_ns:
    case k_type_cname:
    case k_type_ptr:
      EXPECT_NE(decode_name(r.packet, static_cast<std::uint16_t>(r.rdata_offset), name), 0u);
      out << name;
      break;
    case k_type_mx:
      EXPECT_NE(decode_name(r.packet, static_cast<std::uint16_t>(r.rdata_offset + 2), name), 0u);
      out << (r.rdata.at(0) << 8 | r.rdata.at(1)) << ' ' << name;
      break;
    case k_type_soa: {
      SOA_RDATA soa;
      EXPECT_TRUE(decode_soa(r.packet, r.rdata_offset, soa));
      out << soa.name_server << ' ' << soa.admin_mailbox << ' ' << soa.serial << ' ' << soa.refresh << ' '
          << soa.retry << ' ' << soa.expire << ' ' << soa.minimum;
      break;
    }
    case k_type_aaaa: {
      char text[INET6_ADDRSTRLEN] = {};
      inet_ntop(AF_INET6, r.rdata.data(), text, sizeof text);
      out << text;
      break;
    }
    case k_type_txt:
      for (std::size_t i = 0; i < r.rdata.size(); i += 1 + r.rdata[i]) {
        out << (i ? " \"" : "\"") << std::string(r.rdata.begin() + i + 1, r.rdata.begin() + i + 1 + r.rdata[i]) << '"';
      }
      break;
    default:
      out << "?";
  }
  return out.str();
}

std::vector<std::string> dig_lines(const parsed& p) {
  std::vector<std::string> lines;
  const auto section = [&](const char* heading, const std::vector<DNS_RES_RECORD>& list, bool question) {
    if (list.empty()) return;
    lines.push_back(heading);
    for (const auto& r : list) {
      const std::string cls = r.class_ == 1 ? "IN" : "CLASS" + std::to_string(r.class_);
      const std::string type(record_type_name(r.type));
      lines.push_back(question ? ";" + r.name + " " + cls + " " + type
                               : r.name + " " + std::to_string(r.ttl) + " " + cls + " " + type + " " + dig_data(r));
    }
  };
  section(";; QUESTION SECTION:", p.q, true);
  section(";; ANSWER SECTION:", p.an, false);
  section(";; AUTHORITY SECTION:", p.ns, false);
  section(";; ADDITIONAL SECTION:", p.ar, false);
  return lines;
}

// dig-oracle.txt: "=== <file>: ..." then dig's lines for that reply.
std::map<std::string, std::vector<std::string>> read_oracle() {
  std::map<std::string, std::vector<std::string>> oracle;
  std::ifstream in(std::filesystem::path(ZIB_TEST_DATA_DIR) / "dig-oracle.txt");
  std::string line, file;
  while (std::getline(in, line)) {
    if (line.rfind("=== ", 0) == 0) {
      file = line.substr(4, line.find(':') - 4);
    } else if (!file.empty() && line.rfind(";; ->>", 0) != 0 && line.rfind(";; flags", 0) != 0) {
      oracle[file].push_back(join_tokens(line));
    }
  }
  return oracle;
}

TEST(parse_response, captured_replies_read_as_dig_reads_them) {
  const auto oracle = read_oracle();
  ASSERT_GE(oracle.size(), 10u) << "dig-oracle.txt missing or short";
  const std::string server = "127.0.0.20";
  for (const auto& [file, expected] : oracle) {
    SCOPED_TRACE(file);
    const bytes msg = read_file(std::filesystem::path(ZIB_TEST_DATA_DIR) / file);
    ASSERT_FALSE(msg.empty());
    const parsed p = parse(msg, &server, 1234);
    EXPECT_EQ(p.result, msg.size());  // nsd's replies hold exactly their counted records
    EXPECT_EQ(p.id, 42);              // 2a 00, read low byte first
    EXPECT_EQ(dig_lines(p), expected);
    for (const auto* list : {&p.q, &p.an, &p.ns, &p.ar}) {
      for (const auto& r : *list) {
        EXPECT_EQ(r.packet, msg);
        EXPECT_EQ(r.server, server);
        EXPECT_EQ(r.timestamp, 1234u);
        EXPECT_EQ(r.id, 42);
        ASSERT_LE(r.rdata_offset + r.rdlength, msg.size());
        EXPECT_EQ(r.rdata, bytes(msg.begin() + r.rdata_offset, msg.begin() + r.rdata_offset + r.rdlength));
      }
    }
  }
}

TEST(parse_response, captured_offsets) {
  struct row {
    const char* file;
    std::size_t answer;
    std::uint32_t rdata_offset;
    std::uint16_t rdlength;
  };
  // www.example.test is 18 bytes at 12; QTYPE/QCLASS to 34; pointer c0 0c and 10 fixed bytes.
  const row rows[] = {{"nsd-a-www.bin", 0, 46, 4},
                      {"nsd-aaaa-www.bin", 0, 46, 16},
                      {"nsd-txt-strings.bin", 0, 42, 12 + 14 + 6}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.file);
    const parsed p = parse(read_file(std::filesystem::path(ZIB_TEST_DATA_DIR) / r.file));
    ASSERT_GT(p.an.size(), r.answer);
    EXPECT_EQ(p.an[r.answer].rdata_offset, r.rdata_offset);
    EXPECT_EQ(p.an[r.answer].rdlength, r.rdlength);
    EXPECT_EQ(p.q.at(0).rdata_offset + p.q.at(0).rdlength + p.q.at(0).ttl, 0u);
  }
}

// --- crafted messages ---------------------------------------------------------------------

bytes header(std::uint8_t flags, std::uint16_t qd, std::uint16_t an, std::uint16_t ns, std::uint16_t ar) {
  return {0x2a, 0x00,  // ID 42, low byte first
          flags, 0x80,
          static_cast<std::uint8_t>(qd >> 8), static_cast<std::uint8_t>(qd),
          static_cast<std::uint8_t>(an >> 8), static_cast<std::uint8_t>(an),
          static_cast<std::uint8_t>(ns >> 8), static_cast<std::uint8_t>(ns),
          static_cast<std::uint8_t>(ar >> 8), static_cast<std::uint8_t>(ar)};
}

bytes operator+(bytes a, const bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const bytes k_question = {1, 'q', 0,  // q.
                          0x00, 0x01, 0x00, 0x01};
const bytes k_answer_a = {0xc0, 12,                // q. (pointer to the question)
                          0x00, 0x01, 0x00, 0x01,  // A IN
                          0x00, 0x00, 0x0e, 0x10,  // TTL 3600
                          0x00, 0x04,              // RDLENGTH 4
                          192, 0, 2, 1};
const bytes k_answer_rdlength_5 = {0xc0, 12, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00, 0x0e, 0x10,
                                   0x00, 0x05,     // one more than follows
                                   192, 0, 2, 2};

TEST(parse_response, hostile_and_short_messages) {
  struct row {
    const char* label;
    bytes msg;
    unsigned result;
    std::size_t q, an, ns, ar;
  };
  const bytes fixed_a = {0x00, 0x01, 0x00, 0x01, 0, 0, 0, 0, 0x00, 0x04};  // A IN, TTL 0, RDLENGTH 4
  bytes long_label = {0x40};
  long_label.insert(long_label.end(), 0x40, 'L');
  const row rows[] = {
      {"QR bit 0 is refused before anything is read", header(0x01, 1, 0, 0, 0) + k_question, 0, 0, 0, 0, 0},
      {"12-byte reply with QDCOUNT 1", header(0x81, 1, 0, 0, 0), 12, 0, 0, 0, 0},
      {"all counts 0, trailing bytes ignored", header(0x81, 0, 0, 0, 0) + k_question, 12, 0, 0, 0, 0},
      {"datagram shorter than a header reads zero counts", bytes{0x2a, 0x00, 0x81}, 12, 0, 0, 0, 0},
      {"counts larger than the data", header(0x81, 1, 5, 5, 5) + k_question + k_answer_a, 35, 1, 1, 0, 0},
      {"trailing bytes after the counted records", header(0x81, 1, 1, 0, 0) + k_question + k_answer_a + bytes{0, 0},
       35, 1, 1, 0, 0},
      {"each section into its own list", header(0x81, 1, 1, 1, 1) + k_question + k_answer_a + k_answer_a + k_answer_a,
       67, 1, 1, 1, 1},
      {"rdlength exactly to the end", header(0x81, 1, 2, 0, 0) + k_question + k_answer_a + k_answer_a, 51, 1, 2, 0, 0},
      {"rdlength one past the end keeps earlier records",
       header(0x81, 1, 3, 0, 0) + k_question + k_answer_a + k_answer_rdlength_5, 0, 1, 1, 0, 0},
      {"answer fixed part cut short", header(0x81, 1, 1, 0, 0) + k_question + bytes{0xc0, 12, 0, 1, 0, 1}, 0, 1, 0, 0, 0},
      {"pointer to itself in the question", header(0x81, 1, 0, 0, 0) + bytes{0xc0, 12, 0, 1, 0, 1}, 0, 0, 0, 0, 0},
      {"pointer to itself in an answer", header(0x81, 1, 1, 0, 0) + k_question + bytes{0xc0, 19} + fixed_a, 0, 1, 0, 0, 0},
      {"two-pointer loop in an answer", header(0x81, 1, 1, 0, 0) + k_question + bytes{0xc0, 21, 0xc0, 19} + fixed_a,
       0, 1, 0, 0, 0},
      {"pointer past the end in an additional name",
       header(0x81, 1, 1, 1, 1) + k_question + k_answer_a + k_answer_a + bytes{0xc0, 0xff} + fixed_a, 0, 1, 1, 1, 0},
      {"forward pointer in an owner name",
       header(0x81, 0, 1, 0, 0) + bytes{0xc0, 28} + fixed_a + bytes{192, 0, 2, 3} + bytes{1, 'f', 0}, 28, 0, 1, 0, 0},
      {"label length 0x40 in the question", header(0x81, 1, 0, 0, 0) + long_label + bytes{0, 0, 1, 0, 1}, 82, 1, 0, 0, 0},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    const parsed p = parse(r.msg);
    EXPECT_EQ(p.result, r.result);
    EXPECT_EQ(p.q.size(), r.q);
    EXPECT_EQ(p.an.size(), r.an);
    EXPECT_EQ(p.ns.size(), r.ns);
    EXPECT_EQ(p.ar.size(), r.ar);
    EXPECT_EQ(p.id, r.result == 0 && r.q == 0 && r.msg[2] == 0x01 ? 0xbeef : 42);
  }
}

TEST(parse_response, lists_are_emptied_first) {
  parsed p = parse(header(0x81, 1, 1, 0, 0) + k_question + k_answer_a);
  ASSERT_EQ(p.an.size(), 1u);
  p.result = parse_response(nullptr, 0, header(0x01, 0, 0, 0, 0), p.id, p.q, p.an, p.ns, p.ar);
  EXPECT_EQ(p.result, 0u);
  EXPECT_TRUE(p.q.empty() && p.an.empty());
}

TEST(parse_response, question_cut_short_reads_zeros) {
  // Root name at 12, then one byte of QTYPE: the missing bytes read as zeros.
  const parsed p = parse(header(0x81, 1, 0, 0, 0) + bytes{0x00, 0x01});
  EXPECT_EQ(p.result, 17u);
  ASSERT_EQ(p.q.size(), 1u);
  EXPECT_EQ(p.q[0].name, "");
  EXPECT_EQ(p.q[0].type, 0x0100);
  EXPECT_EQ(p.q[0].class_, 0);
}

// Positions are 16-bit. In a 65,535-byte reply, a record placed at 65,531 has its TTL at
// 65,536 = 0 and its RDLENGTH at 4 (QDCOUNT), so its data starts at 6 and parsing resumes there.
TEST(parse_response, positions_wrap_at_64k) {
  bytes msg = header(0x81, 0, 2, 0, 0) + bytes{0,                       // root owner at 12
                                               0x00, 0x10, 0x00, 0x01,  // TXT IN
                                               0, 0, 0, 0};             // TTL
  const std::uint16_t first_rdlength = 65531 - 23;
  msg.insert(msg.end(), {static_cast<std::uint8_t>(first_rdlength >> 8), static_cast<std::uint8_t>(first_rdlength)});
  msg.resize(65535, 0);
  msg[65532] = 0x00;  // second record: root owner at 65531, type 1 at 65532,
  msg[65533] = 0x01;  // class from 65534 and the zero one past the end
  msg[65534] = 0x01;
  const parsed p = parse(msg);
  EXPECT_EQ(p.result, 6u);
  ASSERT_EQ(p.an.size(), 2u);
  EXPECT_EQ(p.an[0].rdata_offset, 23u);
  EXPECT_EQ(p.an[0].rdlength, first_rdlength);
  EXPECT_EQ(p.an[1].type, 1);
  EXPECT_EQ(p.an[1].class_, 0x0100);
  EXPECT_EQ(p.an[1].ttl, 0x2a008180u);  // the ID and flag bytes
  EXPECT_EQ(p.an[1].rdlength, 0);       // QDCOUNT
  EXPECT_EQ(p.an[1].rdata_offset, 6u);
}

TEST(decode_soa, bounds_and_reset) {
  const bytes numbers = {0x78, 0xa1, 0xb2, 0xc3, 0, 0, 0x0e, 0x10, 0, 0, 0x03, 0x84, 0, 0x09, 0x3a, 0x80, 0, 0, 0x0e, 0x10};
  const bytes names = {2, 'n', 's', 0, 0xc0, 12};  // "ns." then a pointer back to it
  struct row {
    const char* label;
    bytes msg;
    bool ok;
    SOA_RDATA expected;
  };
  const SOA_RDATA full{"ns.", "ns.", 0x78a1b2c3, 3600, 900, 604800, 3600};
  const row rows[] = {
      {"numbers end at the length", header(0x81, 0, 0, 0, 0) + names + numbers, true, full},
      {"numbers one byte short", header(0x81, 0, 0, 0, 0) + names + bytes(numbers.begin(), numbers.end() - 1), false, {}},
      {"bad first name", header(0x81, 0, 0, 0, 0) + bytes{0xc0, 12} + numbers, false, {}},
      {"bad second name", header(0x81, 0, 0, 0, 0) + bytes{2, 'n', 's', 0, 0xc0, 18} + numbers, false, {}},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.label);
    SOA_RDATA out{"stale", "stale", 1, 2, 3, 4, 5};
    EXPECT_EQ(decode_soa(r.msg, 12, out), r.ok);
    EXPECT_EQ(out, r.expected);
  }
}

}  // namespace
