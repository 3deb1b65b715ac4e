// Results must never be lost silently: a report that cannot be written stops the run with one
// message and status 255. And switches given last, without their value, behave as the parse
// rules say. Addresses 127.0.0.200-203: nothing listens on .200 (every query times out at once
// on the port-unreachable error), the responders take .201-.203.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "support/fake_responder.h"
#include "support/process_runner.h"

namespace {

using namespace std::chrono_literals;

const std::string k_erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";
const std::string k_nowhere = "127.0.0.200";

std::string names(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) text += "n" + std::to_string(i) + ".test\n";
  return text;
}

std::size_t lines_with(const std::string& text, const std::string& word) {
  std::size_t count = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++count;
  return count;
}

TEST(output_failure, a_report_that_cannot_be_written_ends_the_run_with_255) {
  const std::string full = k_erase + "prob writing results: No space left on device\n";
  const std::string pipe = k_erase + "prob writing results: Broken pipe\n";
  struct failure_case {
    const char* label;
    std::vector<std::string> args;
    std::string input;
    int stdout_lines;
    std::string err;
  } cases[] = {
      {"single name into a full disk", {"-url", "a.test", "-server", k_nowhere, "-timeout", "0", "-out", "/dev/full"},
       "", -1, full},
      {"piped xml into a full disk", {"-url_pipe", "-server", k_nowhere, "-timeout", "0", "-xml", "-out", "/dev/full"},
       names(3), -1, full},
      {"header line alone into a full disk", {"-url_pipe", "-server", k_nowhere, "-retry", "-1", "-outfile", "/dev/full"},
       names(3), -1, full},
      // Nothing is written per query with -retry -1, but the header line already meets the pipe.
      {"reader gone before the header", {"-url_pipe", "-server", k_nowhere, "-retry", "-1"}, names(3), 0, pipe},
      {"single name, reader gone at once", {"-url", "a.test", "-server", k_nowhere, "-timeout", "0"}, "", 0, pipe},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    process_options options;
    options.stdin_text = c.input;
    options.stdout_lines = c.stdout_lines;
    options.limit = 20s;
    const auto r = run_zib(c.args, options);
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.err, c.err);
    EXPECT_EQ(r.out, "");
  }
}

// `zib -url_pipe ... | head -1`: the report is far larger than the pipe holds, so a write fails
// soon after the reader leaves; the rest of the input must then stay unread (no more queries).
TEST(output_failure, reader_leaving_early_stops_the_queries) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.201", {}, fake::silent(), 60s);
  constexpr int k_names = 5000;
  process_options options;
  options.stdin_text = names(k_names);
  options.stdout_lines = 1;
  options.limit = 40s;
  const auto cut = run_zib({"-url_pipe", "-server", "127.0.0.201", "-timeout", "0"}, options);
  EXPECT_EQ(cut.status, 255);
  EXPECT_EQ(cut.err, k_erase + "prob writing results: Broken pipe\n");
  // The responder reads on its own thread, possibly after zib has already gone.
  EXPECT_TRUE(server.wait_for_received(1));
  const auto asked = server.received().size();
  EXPECT_LT(asked, 2000u) << "the queries went on after the output failed";

  // The same run read to the end writes every row and exits 0.
  options.stdin_text = names(300);
  options.stdout_lines = -1;
  const auto whole = run_zib({"-url_pipe", "-server", "127.0.0.201", "-timeout", "0"}, options);
  EXPECT_EQ(whole.status, 0);
  EXPECT_EQ(whole.err, "");
  EXPECT_EQ(lines_with(whole.out, "| timeout |"), 300u);
}

// A switch given last has no value: the value fetch reports it absent and leaves it in the list.
TEST(output_failure, switches_given_last_without_their_value) {
  const std::string s = k_nowhere;
  const std::string server_error = "error: need to specify a DNS server to query using the format: -server <ipv4 addr>\n";
  struct last_switch_case {
    const char* label;
    std::vector<std::string> args;
    std::string input;
    int status;
    std::size_t timeout_rows;
    std::string err_part;  // empty: standard error stays empty
  } cases[] = {
      {"-out last: report on standard output", {"-url", "a.test", "-server", s, "-timeout", "0", "-out"}, "", 0, 1, ""},
      {"-outfile last", {"-url", "a.test", "-server", s, "-timeout", "0", "-outfile"}, "", 0, 1, ""},
      {"-filter last: no filter", {"-url_pipe", "-server", s, "-timeout", "0", "-filter"}, "a.test\nb.test\n", 0, 2,
       ""},
      {"-dateformat last: default kept, no message", {"-url", "a.test", "-server", s, "-timeout", "0", "-dateformat"},
       "", 0, 1, ""},
      {"-server last: the server error", {"-url", "a.test", "-server"}, "", 255, 0, server_error},
      {"-url last: no lookup, usage", {"-server", s, "-url"}, "", 255, 0, "usage:\n"},
      {"-out before -server: -server is taken as the file name", {"-url", "a.test", "-out", "-server", s}, "", 255,
       0, server_error},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const auto r = run_zib(c.args, c.input, 20s);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(lines_with(r.out, "| timeout |"), c.timeout_rows);
    if (c.err_part.empty()) {
      EXPECT_EQ(r.err, "");
    } else {
      EXPECT_NE(r.err.find(c.err_part), std::string::npos) << r.err;
    }
  }
}

// -timeout last keeps the default of one second: a silent server makes the run wait for it.
TEST(output_failure, timeout_given_last_keeps_one_second) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.202", {}, fake::silent(), 20s);
  const auto start = std::chrono::steady_clock::now();
  const auto r = run_zib({"-url", "a.test", "-server", "127.0.0.202", "-timeout"}, "", 20s);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(lines_with(r.out, "| timeout |"), 1u);
  EXPECT_GE(took, 900ms);
  EXPECT_LT(took, 5s);
}

}  // namespace
