#include "net/resolver_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "dns/query_builder.h"

namespace {

using bytes = std::vector<std::uint8_t>;
using answers = std::vector<check_answer>;
using enum check_answer;
using verdict = std::optional<aside_reason>;
const verdict honest = aside_reason::none, lying = aside_reason::lying, silent = aside_reason::silent,
              rejecting = aside_reason::rejecting, pending = std::nullopt;

// Each resolver answers its answers in turn; a resolver with fewer than three is still waiting.
TEST(resolver_check, verdicts_across_a_pool) {
  struct row {
    const char* label;
    std::vector<answers> pool;
    std::vector<verdict> expected;
  };
  const answers nx(3, no_such_name), with_data(3, data);
  const row rows[] = {
      {"all NXDOMAIN or no data", {nx, nx, {no_data, no_such_name, no_data}}, {honest, honest, honest}},
      {"one answers data where most say NXDOMAIN", {nx, with_data, nx, {no_such_name, data, no_such_name}, nx},
       {honest, lying, honest, lying, honest}},
      {"as many say data as NXDOMAIN: nobody is judged a liar", {nx, with_data}, {honest, honest}},
      {"a wildcard: everyone answers data", {with_data, with_data, with_data}, {honest, honest, honest}},
      {"NXDOMAIN under a wildcard is still honest", {with_data, with_data, nx}, {honest, honest, honest}},
      {"no replies", {nx, {none, none, none}, nx}, {honest, silent, honest}},
      {"only REFUSED, or REFUSED now and then", {nx, {refused, refused, refused}, {refused, no_such_name, refused}},
       {honest, rejecting, honest}},
      {"SERVFAIL where others answer", {nx, {failed, failed, failed}, nx}, {honest, rejecting, honest}},
      {"SERVFAIL where nobody answers", {{failed, failed, failed}, {none, none, none}, {failed, none, failed}},
       {honest, silent, honest}},
      {"data pending until every first check is in", {with_data, nx, {no_such_name, no_such_name}},
       {pending, honest, pending}},
      {"SERVFAIL pending too", {{failed, failed, failed}, {none}}, {pending, pending}},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    resolver_check check(r.pool.size(), 3);
    for (std::size_t server = 0; server < r.pool.size(); ++server) {
      check.begin(server);
      for (const check_answer a : r.pool[server]) check.record(server, a);
    }
    for (std::size_t server = 0; server < r.pool.size(); ++server) EXPECT_EQ(check.verdict(server), r.expected[server]) << server;
  }
}

// What most said is fixed by the first check: a later one, after begin(), is judged against it.
TEST(resolver_check, a_later_check_is_judged_against_the_first) {
  resolver_check check(3, 2);
  const auto answer = [&](std::size_t server, check_answer a) {
    check.begin(server);
    check.record(server, a);
    check.record(server, a);
  };
  answer(0, no_such_name), answer(1, no_such_name), answer(2, data);
  ASSERT_EQ(check.verdict(2), lying);
  check.begin(2);
  EXPECT_EQ(check.verdict(2), pending);
  answer(2, no_such_name);
  EXPECT_EQ(check.verdict(2), honest);
  answer(0, data), answer(1, data);
  EXPECT_EQ(check.verdict(0), lying);
}

TEST(classify_check_reply, transactions) {
  struct row {
    const char* label;
    std::optional<std::uint8_t> rcode;  // none: nothing received
    bool answered;
    std::size_t answer_records;
    check_answer expected;
    std::size_t length = 12;
  };
  const row rows[] = {
      {"nothing received", std::nullopt, false, 0, none},
      {"NXDOMAIN", 3, true, 0, no_such_name},
      {"NOERROR without answers", 0, true, 0, no_data},
      {"NOERROR with an answer", 0, true, 1, data},
      {"REFUSED", 5, true, 0, refused},
      {"SERVFAIL", 2, true, 0, failed},
      {"NOTIMP", 4, true, 0, failed},
      {"a reply not carrying our ID", 3, false, 0, failed},
      {"shorter than a header", 3, true, 0, failed, 5},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    dns_packet_transaction transaction;
    if (r.rcode) {
      const bytes header = {
          0x2a, 0x00,                                   // ID
          0x81, static_cast<std::uint8_t>(0x80 | *r.rcode),  // QR RD RA, the code
          0x00, 0x01,                                   // QDCOUNT
          0x00, static_cast<std::uint8_t>(r.answer_records),  // ANCOUNT
          0x00, 0x00, 0x00, 0x00,                       // NSCOUNT, ARCOUNT
      };
      transaction.received = shared_bytes(bytes(header.begin(), header.begin() + static_cast<long>(r.length)));
      transaction.received_length = static_cast<std::uint32_t>(r.length);
      transaction.answers.resize(r.answer_records);
    }
    EXPECT_EQ(classify_check_reply(transaction, r.answered), r.expected);
  }
}

TEST(resolver_check, zone_and_check_names) {
  for (const auto& [name, zone] : {std::pair<std::string, bytes>{"www.example.com", {7, 'e', 'x', 'a', 'm', 'p', 'l', 'e', 3, 'c', 'o', 'm', 0}},
                                   {"a.b", {1, 'b', 0}},
                                   {"com", {0}}}) {
    SCOPED_TRACE(name);
    DNS_RES_RECORD query;
    ASSERT_TRUE(build_query(query, name, k_type_a));
    EXPECT_EQ(parent_zone_of(query.packet), zone);
    const bytes first = check_name(zone), second = check_name(zone);
    ASSERT_GT(first.size(), zone.size() + 1);
    EXPECT_EQ(first[0], first.size() - 1 - zone.size());  // one label, then the zone
    EXPECT_LE(first[0], 63);
    EXPECT_TRUE(std::equal(zone.begin(), zone.end(), first.end() - static_cast<long>(zone.size())));
    EXPECT_NE(first, second);
  }
}

}  // namespace
