// The whole tool as a user runs it: the built zib as a child process, its exit status, its
// standard output and standard error, and the queries a scripted responder sees arrive.
// Each TEST has its own 127.0.0.15x address because ctest runs the tests in parallel.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/fake_responder.h"
#include "support/process_runner.h"

namespace {

using namespace std::chrono_literals;

// ESC "[2K", carriage return, 27 blanks, carriage return: the error printer's line erase.
const std::string k_erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";
const std::string k_text_heading =
    "query                                    | comment   | status  | id   | DNSserv     | date       |  time-UTC"
    "     | type | tname  | class | ttl    | size | data\n";
const std::string k_usage_line = " zib -url <domain to lookup> -server <dns srv ip>\n";

std::string xml_open() {
  return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n\n<logdata tool=\"zib\" cmdline=\"") + ZIB_BINARY +
         "\">\n";
}

// The run header line is the tool's identification and then the command line in double
// quotes, an argument holding a blank wrapped in single quotes. The identification is free
// text, so a header line that ends in the right command line becomes "{H}"; dates, times and
// the random id of the text report become {D}, {T} and {ID}.
std::string normalized(const std::string& out, const std::vector<std::string>& args) {
  std::string cmdline = ZIB_BINARY;
  for (const auto& a : args) cmdline += " " + (a.find(' ') == std::string::npos ? a : "'" + a + "'");
  std::string text = out;
  const auto eol = text.find('\n');
  const std::string quoted = "\"" + cmdline + "\"";
  if (eol != std::string::npos && eol >= quoted.size() && text.compare(eol - quoted.size(), quoted.size(), quoted) == 0)
    text.replace(0, eol, "{H}");
  text = std::regex_replace(text, std::regex(R"(\d{4}-\d\d-\d\d)"), "{D}");
  text = std::regex_replace(text, std::regex(R"(\d\d:\d\d:\d\d\.\d{3})"), "{T}");
  return std::regex_replace(text, std::regex(R"(\| 00[0-6][0-9a-f] \|)"), "| {ID} |");
}

std::string timeout_row(const std::string& query, const std::string& server) {
  std::string row = query;
  row.resize(40, ' ');
  return row + " | question  | timeout | {ID} | " + server + " | {D} |  {T} |    1 |      A |     1 |      0 |    0 |   <none>\n";
}

// The question name of each query the responder received, dotted.
std::vector<std::string> asked_names(const fake::responder& r) {
  std::vector<std::string> names;
  for (const auto& d : r.received()) {
    std::string name;
    for (std::size_t at = 12; at < d.data.size() && d.data[at] != 0; at += d.data[at] + 1u)
      name.append(d.data.begin() + static_cast<long>(at) + 1, d.data.begin() + static_cast<long>(at) + 1 + d.data[at])
          .push_back('.');
    names.push_back(name);
  }
  return names;
}

// One row per line of the run loop's failure table, and the quiet ways a run ends. Nothing
// listens on this address, so an ordinary query times out at once with -timeout 0.
TEST(e2e, exit_status_and_output_of_each_way_a_run_ends) {
  const std::string s = "127.0.0.151";
  struct run_case {
    const char* label;
    std::vector<std::string> args;
    std::optional<std::string> input;
    int status;
    std::string out;  // after normalized()
    std::string err;  // a part of standard error; empty means none at all
  } cases[] = {
      {"no arguments", {}, "", 0, "", k_usage_line},
      {"help switch wins over a lookup", {"-url", "a.test", "/?", "-server", s}, "", 0, "", k_usage_line},
      {"parse failure: header on stdout", {"-url", "x", "-csv_separator", " ; "}, "", 255, "{H}\n",
       "error: need to specify a DNS server to query using the format: -server <ipv4 addr>\n"},
      {"results file cannot be opened, no XML anywhere",
       {"-url", "a.test", "-server", s, "-xml", "-out", "/nonexistent/dir/x"}, "", 255, "",
       k_erase + "prob opening results file: /nonexistent/dir/x for writing\n"},
      {"no lookup requested", {"-server", s}, "", 255, "{H}\n", k_usage_line},
      {"single-name build failure leaves logdata open", {"-url", "...", "-server", s, "-xml"}, "", 255,
       "{H}\n" + xml_open(), k_erase + "prob building dns packet... aborting\n"},
      {"piped build failure is skipped quietly", {"-url_pipe", "-server", s, "-timeout", "0"}, "...\nok.test\n", 0,
       "{H}\n" + k_text_heading + timeout_row("ok.test", s), ""},
      {"transport failure is only a status word", {"-url", "ok.test", "-server", s, "-timeout", "0", "-csv"}, "", 0,
       "{H}\nquery,comment,status,id,DNSserv,date, time-UTC,type,tname,class,ttl,size,data\n"
       "ok.test,question,timeout,",
       ""},
      {"no standard input at all", {"-url_pipe", "-server", s}, std::nullopt, 0, "{H}\n", ""},
      {"negative retry count switches the query off", {"-url", "ok.test", "-server", s, "-retry", "-1"}, "", 0,
       "{H}\n", ""},
      {"xml frame on empty input", {"-url_pipe", "-server", s, "-xml"}, "", 0, "{H}\n" + xml_open() + "</logdata>\n",
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const auto r = run_zib(c.args, c.input, 20s);
    EXPECT_EQ(r.status, c.status);
    const std::string out = normalized(r.out, c.args);
    if (c.out.ends_with(",")) {  // the CSV id has no fixed width: compare up to it
      EXPECT_EQ(out.substr(0, c.out.size()), c.out);
    } else {
      EXPECT_EQ(out, c.out);
    }
    if (c.err.empty()) {
      EXPECT_EQ(r.err, "");
    } else if (c.err.starts_with(k_erase)) {
      EXPECT_EQ(r.err, c.err);
    } else {
      EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
    }
  }
}

TEST(e2e, results_file_takes_the_whole_report) {
  const std::string s = "127.0.0.152";
  const std::string path = std::filesystem::temp_directory_path() / ("zib-e2e-" + std::to_string(::getpid()));
  const std::vector<std::string> args = {"-url", "ok.test", "-server", s, "-timeout", "0", "-out", path};
  const auto r = run_zib(args, "", 20s);
  std::ifstream file(path);
  std::stringstream written;
  written << file.rdbuf();
  std::filesystem::remove(path);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(normalized(written.str(), args), "{H}\n" + k_text_heading + timeout_row("ok.test", s));
}

TEST(e2e, filters_choose_which_piped_lines_are_asked) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.154", {}, fake::answer_a());
  const std::string input = "MAILHOST1.test\nwww.test\nns1.test\nmx.test\nmxns.test\namail.test\nwww.mail.org\n";
  struct filter_case {
    std::vector<std::string> filters;
    std::vector<std::string> asked;
  } cases[] = {
      {{"-filter", "ns*|mx*"}, {"ns1.test.", "mx.test.", "mxns.test."}},
      {{"-filter", "NS*,*.ORG"}, {"ns1.test.", "www.mail.org."}},
      {{"-filter", "www*", "-filter", "*.test"},
       {"MAILHOST1.test.", "www.test.", "ns1.test.", "mx.test.", "mxns.test.", "amail.test.", "www.mail.org."}},
  };
  std::size_t seen = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.filters.back());
    std::vector<std::string> args = {"-url_pipe", "-server", server.address(), "-csv"};
    args.insert(args.end(), c.filters.begin(), c.filters.end());
    EXPECT_EQ(run_zib(args, input, 20s).status, 0);
    const auto names = asked_names(server);
    EXPECT_EQ(std::vector<std::string>(names.begin() + static_cast<long>(seen), names.end()), c.asked);
    seen = names.size();
  }
}

// Line ends and blank lines: CRLF ends like LF, an empty line is skipped, a line of blanks is a
// name and is asked as it stands, a last line without a line end is read. -delay 1 sleeps
// after every query, the last one included, and never for a skipped line: four names take
// four seconds, and the queries arrive a second apart.
TEST(e2e, piped_lines_are_trimmed_of_line_ends_only_and_paced_by_the_delay) {
  FAKE_RESPONDER_OR_SKIP(server, "127.0.0.153", {}, fake::answer_a());
  const auto start = std::chrono::steady_clock::now();
  const auto r = run_zib({"-url_pipe", "-server", server.address(), "-delay", "1"},
                         "a.test\r\n\r\n\n  \r\nb.test\r\r\nc.test", 20s);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(asked_names(server), (std::vector<std::string>{"a.test.", "  .", "b.test.", "c.test."}));
  const auto got = server.received();
  for (std::size_t i = 1; i < got.size(); ++i) {
    EXPECT_GE(got[i].at - got[i - 1].at, 950ms);
    EXPECT_LT(got[i].at - got[i - 1].at, 1800ms);
  }
  EXPECT_GE(took, 4s);
  EXPECT_LT(took, 6s);
}

}  // namespace
