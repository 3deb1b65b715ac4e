#include "net/query_transaction.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/fake_responder.h"
#include "time/clock.h"

namespace {

using std::chrono::milliseconds;
using rows = std::vector<std::string>;

// Every delay goes through the pause seam; the tests record the requests instead of waiting.
std::vector<unsigned> g_pauses;

// What the query builder would make for "www.example.test" with ID 42, written out here so
// these tests depend only on the transport.
DNS_RES_RECORD make_query(std::uint16_t type) {
  DNS_RES_RECORD query;
  query.packet = {0x2A, 0x00, 0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  const auto name = fake::wire_name("www.example.test");
  query.packet.insert(query.packet.end(), name.begin(), name.end());
  query.packet.insert(query.packet.end(), {0x00, static_cast<std::uint8_t>(type), 0x00, 0x01});
  query.name = "www.example.test";
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

// The row layout is the table writer's business; here only the columns the transaction
// decides count: "status comment name", blanks trimmed.
rows row_summaries(const std::string& output) {
  auto trim = [](std::string s) {
    s.erase(0, s.find_first_not_of(' '));
    return s.erase(s.find_last_not_of(' ') + 1);
  };
  rows out;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const auto a = line.find(" | "), b = line.find(" | ", a + 3), c = line.find(" | ", b + 3);
    if (c != std::string::npos)
      out.push_back(trim(line.substr(a + 3, b - a - 3)) + " " + trim(line.substr(b + 3, c - b - 3)) + " " +
                    trim(line.substr(0, a)));
  }
  return out;
}

class transaction_test : public ::testing::Test {
 protected:
  void SetUp() override {
    g_pauses.clear();
    m_previous = set_pause_function([](unsigned seconds) { g_pauses.push_back(seconds); });
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
  rows rows_;  // "comment status name"
  std::size_t attempts;
  std::vector<unsigned> pauses;
  long long max_ms = 10000;
};

const std::string q = "www.example.test";    // the query record itself
const std::string qd = "www.example.test.";  // a parsed record owned by the question name

rows repeat(std::size_t n, const std::string& row) { return rows(n, row); }

// A question with a pointer to itself: the name decoder gives up, so nothing parses.
const fake::bytes k_self_pointer = {0x2A, 0x00, 0x81, 0x80, 0x00, 0x01, 0x00, 0x00,
                                    0x00, 0x00, 0x00, 0x00, 0xC0, 0x0C, 0x00, 0x01, 0x00, 0x01};
const fake::bytes k_header_only = {0x2A, 0x00, 0x81, 0x80, 0, 0, 0, 0, 0, 0, 0, 0};

const run_case k_run_cases[] = {
    {"answer", "127.0.0.110", 1, {fake::answer_a()}, 1, 1, 2, {"answer success " + qd}, 1, {}},
    {"silent_three_attempts", "127.0.0.111", 1, {}, 2, 1, 3, repeat(3, "question timeout " + q), 3, {3, 3, 3}, 4500},
    {"answer_on_third_attempt", "127.0.0.112", 1, {fake::silent(), fake::silent(), fake::answer_a()}, 2, 1, 1,
     {"question timeout " + q, "question timeout " + q, "answer success " + qd}, 3, {1, 1}},
    {"empty_datagram_is_nothing", "127.0.0.113", 1, {fake::empty_datagram()}, 0, 1, 0,
     {"question timeout " + q}, 1, {}},
    {"not_a_response", "127.0.0.114", 1, {fake::raw_bytes({0x13, 0x37, 0x42, 0x00, 0xff, 0xfe})}, 1, 1, 0,
     repeat(2, "question unkresp " + q), 2, {}},
    {"unreadable_name", "127.0.0.115", 1, {fake::raw_bytes(k_self_pointer)}, 0, 1, 0, {"question unkresp " + q}, 1, {}},
    {"header_only_matching_id_ends", "127.0.0.116", 1, {fake::raw_bytes(k_header_only)}, 2, 1, 0,
     {"question unkresp " + q}, 1, {}},
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
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(run_query(out, transaction, query, config), 1);
  EXPECT_LE(std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start).count(), c.max_ms);
  if (c.rows_.empty()) {
    EXPECT_EQ(out.str(), "");
  }
  EXPECT_EQ(row_summaries(out.str()), c.rows_);
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

TEST_F(transaction_test, exchange_keeps_both_packets_and_stamps_every_record) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.130", {fake::answer_a({10, 1, 2, 3})});
  DNS_RES_RECORD query = make_query(1);
  dns_packet_transaction transaction;
  transaction.answers.resize(3);  // left over from an earlier attempt
  const std::string address = "127.0.0.130";
  const std::uint64_t before = now_timestamp();
  ASSERT_TRUE(exchange(transaction, query, &address, 1));
  EXPECT_EQ(query.server, address);
  EXPECT_TRUE(before <= query.timestamp && query.timestamp <= transaction.received_at);
  EXPECT_LE(transaction.received_at, now_timestamp());
  EXPECT_EQ(transaction.sent, query.packet);
  EXPECT_EQ(transaction.sent_length, query.packet.size());
  ASSERT_TRUE(server.wait_for_sent(1));
  EXPECT_EQ(transaction.received, server.sent()[0]);
  EXPECT_EQ(transaction.received_length, server.sent()[0].size());
  ASSERT_EQ(transaction.answers.size(), 1u);
  EXPECT_EQ(transaction.answers[0].server, address);
  EXPECT_EQ(transaction.answers[0].timestamp, transaction.received_at);
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
}

// The first reply has a foreign ID, so a dump shows both packets of both attempts; XML never
// gets one.
TEST_F(transaction_test, verbose_dump_follows_each_attempt_except_in_xml) {
  for (const bool xml : {false, true}) {
    const char* address = xml ? "127.0.0.134" : "127.0.0.133";
    SCOPED_TRACE(address);
    FAKE_RESPONDER_OR_SKIP(server, address, {fake::foreign_id(), fake::answer_a()});
    DNS_RES_RECORD query = make_query(1);
    dns_packet_transaction transaction;
    input_params config = make_config(address, 1, 1, 0);
    config.verbose = 1;
    config.xml = xml;
    config.heading_pending = xml;  // the XML writer leaves the flag alone; the loop clears it
    std::ostringstream out;
    run_query(out, transaction, query, config);
    std::string kinds;  // R a row, X an XML entry, S and V the dump's two packet headings
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);)
      kinds += line.starts_with("<data_entry>")             ? "X"
               : line.find(" | ") != std::string::npos      ? "R"
               : line == "packet that was sent"             ? "S"
               : line == "packet that was recv'd"           ? "V"
                                                            : "";
    EXPECT_EQ(kinds, xml ? "XX" : "RSVRSV");
    EXPECT_EQ(config.heading_pending, 0);
  }
}

TEST_F(transaction_test, no_descriptor_outlives_an_attempt) {
  if (!open_descriptor_count()) GTEST_SKIP() << "no /proc/self/fd to count descriptors";
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.135", {}, fake::answer_a());
  const auto with_responder = open_descriptor_count();
  DNS_RES_RECORD query = make_query(1);
  dns_packet_transaction transaction;
  const std::string answering = "127.0.0.135", silent = "127.0.0.136";
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

}  // namespace
