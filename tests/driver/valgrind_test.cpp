// The whole tool under valgrind's memcheck: every lookup kind, every report format, the
// verbose dump, retries against silence and piped input, with replies that carry every record
// kind the renderers know. Any invalid read, use of uninitialised memory or leak fails the run.
// Addresses 127.0.0.220 (answers) and 127.0.0.221 (silent).
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "support/fake_responder.h"
#include "support/process_runner.h"
#include "support/sanitizer.h"


namespace {

using namespace std::chrono_literals;
using fake::bytes;

std::optional<std::string> find_on_path(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "/usr/bin:/bin";
  for (std::size_t at = 0; at <= dirs.size();) {
    const auto end = std::min(dirs.find(':', at), dirs.size());
    const std::string candidate = dirs.substr(at, end - at) + "/" + program;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    at = end + 1;
  }
  return std::nullopt;
}

// A, NS, CNAME, PTR, MX, TXT, AAAA and an unknown type in the answers (names in the data
// compressed to the question), an SOA under authority, an A under additions.
fake::action rich_reply() {
  const bytes to_question = {0xc0, 12};
  fake::reply_body body;
  body.answers = {
      fake::a_record({192, 0, 2, 1}),
      {{}, 2, 1, 60, to_question},
      {{}, 5, 1, 60, to_question},
      {{}, 12, 1, 60, to_question},
      {{}, 15, 1, 60, {0, 10, 0xc0, 12}},
      {{}, 16, 1, 60, {5, 'h', 'e', 'l', 'l', 'o', 3, 'a', 'b', 'c'}},
      {{}, 28, 1, 60, {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
      {{}, 65280, 1, 60, {1, 2, 3}},
  };
  body.authority = {fake::soa_record("ns1.example.test", "hostmaster.example.test", 7)};
  body.additional = {fake::a_record({192, 0, 2, 53})};
  return fake::reply(std::move(body));
}

TEST(valgrind, no_errors_and_no_leaks_end_to_end) {
  if (k_address_sanitizer) GTEST_SKIP() << "valgrind and AddressSanitizer do not mix";
  const auto valgrind = find_on_path("valgrind");
  if (!valgrind) GTEST_SKIP() << "valgrind is not installed";
  FAKE_RESPONDER_OR_SKIP(answers, "127.0.0.220", {}, rich_reply(), 300s);
  FAKE_RESPONDER_OR_SKIP(silent, "127.0.0.221", {}, fake::silent(), 300s);
  const std::string s = answers.address();

  struct scenario {
    const char* label;
    std::vector<std::string> args;
    std::string input;
    std::string word = "success";  // a status word the report must hold
  } scenarios[] = {
      {"-url text", {"-url", "www.example.test", "-server", s}, ""},
      {"-ip csv", {"-ip", "192.0.2.1", "-server", s, "-csv"}, ""},
      {"-mx xml", {"-mx", "example.test", "-server", s, "-xml"}, ""},
      {"-ns verbose", {"-ns", "example.test", "-server", s, "-verbose"}, ""},
      {"-cname csv, no whitespace, own date and time", {"-cname", "alias.example.test", "-server", s, "-csv",
        "-no_whitespace", "-dateformat", "mm/dd/yyyy", "-timeformat", "hh:mm:ss.xxxxxx"}, ""},
      {"-txt xml verbose", {"-txt", "example.test", "-server", s, "-xml", "-verbose"}, ""},
      {"retries against silence", {"-url", "a.test", "-server", silent.address(), "-timeout", "0", "-retry", "2",
        "-verbose"}, "", "timeout"},
      {"piped with a filter", {"-url_pipe", "-server", s, "-filter", "*example*|ns*", "-verbose"},
       "www.example.test\r\nskipped.test\n\nns1.test\n" + std::string(5000, 'x') + "\n"},
  };
  for (const auto& c : scenarios) {
    SCOPED_TRACE(c.label);
    std::vector<std::string> argv = {*valgrind, "--quiet", "--leak-check=full", "--show-leak-kinds=definite,indirect,possible",
                                     "--errors-for-leak-kinds=definite,indirect,possible", "--error-exitcode=99",
                                     ZIB_BINARY};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    const auto r = run_process(argv, c.input, 120s);
    EXPECT_FALSE(r.timed_out);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.find("=="), std::string::npos) << r.err;  // valgrind's own lines
    EXPECT_NE(r.out.find(c.word), std::string::npos) << r.out;
  }
}

}  // namespace
