#include "net/query_transaction.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/fake_responder.h"
#include "support/nsd_server.h"
#include "support/process_runner.h"
#include "time/clock.h"

namespace {

using clock_type = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Every delay goes through the pause seam; the tests record the requests instead of waiting.
std::vector<unsigned> g_pauses;
void record_pause(unsigned seconds) { g_pauses.push_back(seconds); }

// What the query builder would make for "www.example.test" with ID 42, written out here so
// these tests depend only on the transport.
DNS_RES_RECORD make_query(std::uint16_t type, const std::string& text = "www.example.test") {
  DNS_RES_RECORD query;
  query.packet = {0x2A, 0x00, 0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  const auto name = fake::wire_name(text);
  query.packet.insert(query.packet.end(), name.begin(), name.end());
  query.packet.insert(query.packet.end(), {0x00, static_cast<std::uint8_t>(type), 0x00, 0x01});
  query.name = text;
  query.type = type;
  query.class_ = 1;
  query.id = 42;
  return query;
}

input_params make_config(const char* server, std::int32_t retry, std::int32_t timeout, std::int32_t delay) {
  input_params config;
  config.server = server;
  config.retry = retry;
  config.timeout = timeout;
  config.delay = delay;
  config.heading_pending = 0;
  return config;
}

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The layout of a row is the table writer's business; these tests look at the columns the
// transaction decides: comment, status, and which record (query text or parsed owner name).
std::vector<std::string> row_summaries(const std::string& output) {
  std::vector<std::string> rows;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> fields;
    for (std::size_t at = 0, bar; fields.size() < 3; at = bar + 3) {
      bar = line.find(" | ", at);
      if (bar == std::string::npos) break;
      fields.push_back(trim(line.substr(at, bar - at)));
    }
    if (fields.size() == 3) rows.push_back(trim(fields[1] + " " + fields[2] + " " + fields[0]));
  }
  return rows;
}

class transaction_test : public ::testing::Test {
 protected:
  void SetUp() override {
    g_pauses.clear();
    m_previous = set_pause_function(record_pause);
  }
  void TearDown() override { set_pause_function(m_previous); }

 private:
  pause_function m_previous = nullptr;
};

struct run_case {
  const char* label;
  const char* address;
  std::uint16_t type;
  std::vector<fake::action> script;
  std::int32_t retry, timeout, delay;
  std::vector<std::string> rows;  // "comment status name"
  std::size_t attempts;
  std::vector<unsigned> pauses;
  long long max_ms = 10000;
};

const std::string q = "www.example.test";    // the query record itself
const std::string qd = "www.example.test.";  // a parsed record owned by the question name

std::vector<std::string> repeat(std::size_t n, const std::string& row) { return std::vector<std::string>(n, row); }

std::vector<std::string> every_type_rows() {
  auto rows = repeat(10, "answer success " + qd);
  rows[3] = "answer success example.test.";  // the SOA record's own owner
  rows.push_back("authority success example.test.");
  rows.push_back("additions success ns1.example.test.");
  return rows;
}

// A question with a pointer to itself: the name decoder gives up, so nothing parses.
const fake::bytes k_self_pointer = {0x2A, 0x00, 0x81, 0x80, 0x00, 0x01, 0x00, 0x00,
                                    0x00, 0x00, 0x00, 0x00, 0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01};

fake::action header_only() {
  fake::reply_body body;
  body.with_question = false;
  return fake::reply(body);
}

const run_case k_run_cases[] = {
    {"answer", "127.0.0.110", 1, {fake::answer_a()}, 1, 1, 2, {"answer success " + qd}, 1, {}},
    {"silent_three_attempts", "127.0.0.111", 1, {}, 2, 1, 3, repeat(3, "question timeout " + q), 3, {3, 3, 3}, 4500},
    {"answer_on_third_attempt", "127.0.0.112", 1, fake::only_nth(3, fake::answer_a()), 2, 1, 1,
     {"question timeout " + q, "question timeout " + q, "answer success " + qd}, 3, {1, 1}},
    {"empty_datagram_is_nothing", "127.0.0.113", 1, {fake::empty_datagram()}, 0, 1, 0,
     {"question timeout " + q}, 1, {}},
    {"not_a_response", "127.0.0.114", 1, {fake::raw_bytes({0x13, 0x37, 0x42, 0x00, 0xff, 0xfe})}, 1, 1, 0,
     repeat(2, "question unkresp " + q), 2, {}},
    {"unreadable_name", "127.0.0.115", 1, {fake::raw_bytes(k_self_pointer)}, 0, 1, 0, {"question unkresp " + q}, 1, {}},
    {"header_only_matching_id_ends", "127.0.0.116", 1, {header_only()}, 2, 1, 0, {"question unkresp " + q}, 1, {}},
    {"question_only", "127.0.0.117", 1, {fake::question_only()}, 1, 1, 0, {"question invalid " + qd}, 1, {}},
    {"question_only_cname", "127.0.0.118", 5, {fake::question_only()}, 1, 1, 0, {}, 1, {}},
    {"no_such_name", "127.0.0.119", 1, {fake::no_such_name()}, 0, 1, 0,
     {"question invalid " + qd, "authority success example.test."}, 1, {}},
    {"no_such_name_cname", "127.0.0.120", 5, {fake::no_such_name()}, 0, 1, 0,
     {"authority success example.test."}, 1, {}},
    {"foreign_id_reported_and_retried", "127.0.0.121", 1, {fake::foreign_id(), fake::foreign_id()}, 1, 1, 4,
     repeat(2, "answer success " + qd), 2, {4, 4}},
    {"foreign_id_then_match", "127.0.0.122", 1, {fake::foreign_id(), fake::answer_a()}, 3, 1, 0,
     repeat(2, "answer success " + qd), 2, {}},
    {"every_type", "127.0.0.123", 1, {fake::every_type()}, 0, 1, 0, every_type_rows(), 1, {}},
    {"reply_from_elsewhere", "127.0.0.124", 1, {fake::from_elsewhere(fake::answer_a())}, 0, 1, 0,
     {"answer success " + qd}, 1, {}},
    {"negative_retry_is_off", "127.0.0.125", 1, {fake::answer_a()}, -1, 1, 5, {}, 0, {}},
    {"timeout_zero_polls_once", "127.0.0.126", 1, {fake::delayed(fake::answer_a(), milliseconds(300))}, 0, 0, 0,
     {"question timeout " + q}, 1, {}, 250},
};

void PrintTo(const run_case& c, std::ostream* os) { *os << c.label; }

class run_query_test : public transaction_test, public ::testing::WithParamInterface<run_case> {};

TEST_P(run_query_test, rows_attempts_and_pauses) {
  const run_case& c = GetParam();
  FAKE_RESPONDER_OR_SKIP(server, c.address, c.script, c.script.empty() ? fake::silent() : c.script.back());

  DNS_RES_RECORD query = make_query(c.type);
  dns_packet_transaction transaction;
  input_params config = make_config(c.address, c.retry, c.timeout, c.delay);
  std::ostringstream out;
  const auto start = clock_type::now();
  EXPECT_EQ(run_query(out, transaction, query, config), 1);
  EXPECT_LE(std::chrono::duration_cast<milliseconds>(clock_type::now() - start).count(), c.max_ms);

  if (c.rows.empty()) {
    EXPECT_EQ(out.str(), "");
  }
  EXPECT_EQ(row_summaries(out.str()), c.rows);
  EXPECT_EQ(g_pauses, c.pauses);
  // Every attempt resends the same bytes, ID included, each from a fresh socket.
  server.wait_for_received(c.attempts);
  server.stop();
  const auto got = server.received();
  ASSERT_EQ(got.size(), c.attempts);
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].data, query.packet) << "attempt " << i;
    if (i > 0) {
      EXPECT_NE(got[i].port, got[i - 1].port) << "attempt " << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(scenarios, run_query_test, ::testing::ValuesIn(k_run_cases),
                         [](const auto& info) { return std::string(info.param.label); });

TEST_F(transaction_test, exchange_fills_the_transaction_and_stamps_the_query) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.130", {fake::answer_a({10, 1, 2, 3})});
  DNS_RES_RECORD query = make_query(1);
  dns_packet_transaction transaction;
  transaction.answers.resize(3);  // left over from an earlier attempt
  const std::string address = "127.0.0.130";
  const std::uint64_t before = now_timestamp();
  ASSERT_TRUE(exchange(transaction, query, &address, 1));
  const std::uint64_t after = now_timestamp();

  EXPECT_EQ(query.server, address);
  EXPECT_GE(query.timestamp, before);
  EXPECT_LE(query.timestamp, transaction.received_at);
  EXPECT_LE(transaction.received_at, after);
  EXPECT_EQ(transaction.sent, query.packet);
  EXPECT_EQ(transaction.sent_length, query.packet.size());
  ASSERT_TRUE(server.wait_for_sent(1));
  EXPECT_EQ(transaction.received, server.sent()[0]);
  EXPECT_EQ(transaction.received_length, server.sent()[0].size());
  ASSERT_EQ(transaction.questions.size(), 1u);
  ASSERT_EQ(transaction.answers.size(), 1u);
  EXPECT_EQ(transaction.answers[0].server, address);
  EXPECT_EQ(transaction.answers[0].timestamp, transaction.received_at);
  EXPECT_EQ(transaction.answers[0].rdata, (std::vector<std::uint8_t>{10, 1, 2, 3}));
}

TEST_F(transaction_test, exchange_refuses_without_server_or_message) {
  const std::string address = "127.0.0.131";
  DNS_RES_RECORD query = make_query(1);
  dns_packet_transaction transaction;
  EXPECT_FALSE(exchange(transaction, query, nullptr, 1));
  EXPECT_EQ(query.timestamp, 0u);  // refused before anything was stamped
  EXPECT_EQ(transaction.sent_length, 0u);

  DNS_RES_RECORD empty;
  EXPECT_FALSE(exchange(transaction, empty, &address, 1));
  EXPECT_TRUE(empty.server.empty());
  EXPECT_EQ(transaction, dns_packet_transaction{});

  // Both count as a socket error in the report.
  input_params config = make_config("127.0.0.131", 0, 1, 0);
  std::ostringstream out;
  run_query(out, transaction, empty, config);
  EXPECT_EQ(row_summaries(out.str()), (std::vector<std::string>{"question sock err"}));
}

// No descriptor to spare makes socket() fail without any traffic; every attempt then reports
// "sock err" for the query record, which still carries the server and the time of the try.
TEST_F(transaction_test, socket_failure_reports_sock_err_every_attempt) {
  DNS_RES_RECORD query = make_query(1);
  dns_packet_transaction transaction;
  input_params config = make_config("127.0.0.132", 1, 1, 2);
  std::ostringstream out;
  {
    // A sanitizer build may want a descriptor the first time it checks a stream type; one row
    // written beforehand leaves the socket as the only thing that needs one under the limit.
    std::ostringstream warm_up;
    report_outcome(warm_up, transaction, query, config);
    scoped_descriptor_limit none(0);
    if (!none.active()) GTEST_SKIP() << "cannot lower RLIMIT_NOFILE";
    run_query(out, transaction, query, config);
  }
  EXPECT_EQ(row_summaries(out.str()), repeat(2, "question sock err " + q));
  EXPECT_EQ(g_pauses, (std::vector<unsigned>{2, 2}));
  EXPECT_EQ(query.server, "127.0.0.132");
  EXPECT_NE(query.timestamp, 0u);
  EXPECT_TRUE(transaction.sent.empty());
}

// Line kinds in order: R a row, S the sent packet's heading, V the received packet's, X an
// XML entry. The dump follows each attempt's rows, and never comes with XML.
std::string line_kinds(const std::string& output) {
  std::string kinds;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("<data_entry>") != std::string::npos)
      kinds += 'X';
    else if (line.find(" | ") != std::string::npos)
      kinds += 'R';
    else if (line == "packet that was sent")
      kinds += 'S';
    else if (line == "packet that was recv'd")
      kinds += 'V';
  }
  return kinds;
}

TEST_F(transaction_test, verbose_dump_follows_each_attempt_except_in_xml) {
  struct dump_case {
    const char* address;
    bool xml;
    const char* kinds;
  };
  // The first reply has a foreign ID, so a dump shows both packets of both attempts.
  for (const dump_case c : {dump_case{"127.0.0.133", false, "RSVRSV"}, dump_case{"127.0.0.134", true, "XX"}}) {
    SCOPED_TRACE(c.address);
    FAKE_RESPONDER_OR_SKIP(server, c.address, {fake::foreign_id(), fake::answer_a()});
    DNS_RES_RECORD query = make_query(1);
    dns_packet_transaction transaction;
    input_params config = make_config(c.address, 1, 1, 0);
    config.verbose = 1;
    config.xml = c.xml;
    config.heading_pending = c.xml;  // the XML writer leaves the flag alone; the loop clears it
    std::ostringstream out;
    run_query(out, transaction, query, config);
    EXPECT_EQ(line_kinds(out.str()), c.kinds);
    EXPECT_EQ(config.heading_pending, 0);
    if (c.xml) {
      EXPECT_NE(out.str().find("<status>success</status>"), std::string::npos);
    }
  }
}

TEST_F(transaction_test, no_descriptor_outlives_an_attempt) {
  const auto before = open_descriptor_count();
  if (!before) GTEST_SKIP() << "no /proc/self/fd to count descriptors";
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.135", {}, fake::answer_a());
  const auto with_responder = open_descriptor_count();
  DNS_RES_RECORD query = make_query(1);
  dns_packet_transaction transaction;
  const std::string answering = "127.0.0.135";
  const std::string silent = "127.0.0.136";
  int answered = 0;
  for (int i = 0; i < 200; ++i) {
    if (i % 4 == 3) {
      scoped_descriptor_limit none(0);
      EXPECT_FALSE(exchange(transaction, query, &answering, 1));
    } else {
      answered += exchange(transaction, query, i % 2 ? &silent : &answering, i % 2 ? 0 : 1);
    }
  }
  EXPECT_EQ(answered, 100);
  EXPECT_EQ(open_descriptor_count(), with_responder);
}

// Against a real server, dig (asked the same way: no recursion, no EDNS) is the oracle for
// how many records each section holds; the rows must account for exactly those.
TEST_F(transaction_test, real_server_rows_match_dig_section_counts) {
  const std::string address = "127.0.0.137";
  nsd_server nsd(address, {{"example.test", std::string(ZIB_TEST_DATA_DIR) + "/example.test.zone"}});
  std::string why;
  if (!nsd.start(why)) GTEST_SKIP() << why;
  struct interop_case {
    const char* name;
    std::uint16_t type;
    const char* dig_type;
  };
  const interop_case cases[] = {
      {"www.example.test", 1, "A"},       {"nope.example.test", 1, "A"}, {"nope.example.test", 5, "CNAME"},
      {"alias.example.test", 1, "A"},     {"example.test", 15, "MX"},    {"host.sub.example.test", 1, "A"},
      {"www.example.test", 16, "TXT"},
  };
  for (const interop_case& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " " + c.dig_type);
    const auto dig = run_process({"/usr/bin/dig", "+norec", "+noedns", "+time=2", "+tries=1", "@" + address, c.name,
                                  c.dig_type},
                                 "", std::chrono::seconds(10));
    unsigned question = 0, answer = 0, authority = 0, additional = 0;
    const auto counts = dig.out.find("QUERY: ");
    ASSERT_NE(counts, std::string::npos) << dig.out;
    ASSERT_EQ(std::sscanf(dig.out.c_str() + counts, "QUERY: %u, ANSWER: %u, AUTHORITY: %u, ADDITIONAL: %u", &question,
                          &answer, &authority, &additional),
              4);
    std::vector<std::string> expected;
    if (answer == 0 && c.type != 5) expected.push_back("question invalid");
    for (auto [n, word] : {std::pair{answer, "answer"}, {authority, "authority"}, {additional, "additions"}})
      for (unsigned i = 0; i < n; ++i) expected.push_back(std::string(word) + " success");

    DNS_RES_RECORD query = make_query(c.type, c.name);
    dns_packet_transaction transaction;
    input_params config = make_config(address.c_str(), 0, 2, 0);
    std::ostringstream out;
    run_query(out, transaction, query, config);
    std::vector<std::string> rows;
    for (const std::string& row : row_summaries(out.str())) rows.push_back(row.substr(0, row.rfind(' ')));
    EXPECT_EQ(rows, expected);
  }
}

}  // namespace
