#include "params/input_params.h"

#include <gtest/gtest.h>

#include <sstream>

#include "params/usage.h"

namespace {

struct parse_outcome {
  int result = 0;
  bool help = false;
  std::string error;
  std::string header;
  input_params config;
  arg_list left;
};

parse_outcome run_parse(arg_list args) {
  parse_outcome out;
  std::ostringstream header;
  testing::internal::CaptureStderr();
  out.result = out.config.parse(args, header, out.help);
  out.error = testing::internal::GetCapturedStderr();
  out.header = header.str();
  out.left = std::move(args);
  return out;
}

const std::string k_combination = "invalid combination of commands\n";
const std::string k_no_server =
    "error: need to specify a DNS server to query using the format: -server <ipv4 addr>\n";

TEST(input_params, tool_layer_edge_cases) {
  struct {
    const char* label;
    arg_list args;
    int result;
    std::string error;
    std::string query_name;
    std::int32_t query_type;
    std::uint8_t use_stdin;
    std::string ns;
  } const cases[] = {
      {"two lookups", {"zib", "-url", "a", "-ip", "b", "-server", "s"}, 0, k_combination, "a", 1, 0, ""},
      {"ns then cname share a slot", {"zib", "-ns", "a", "-cname", "b", "-server", "s"}, 0,
       k_combination, "a", 2, 0, "b"},
      {"no server", {"zib", "-url", "x"}, 0, k_no_server, "x", 1, 0, ""},
      {"server without value", {"zib", "-url", "x", "-server"}, 0, k_no_server, "x", 1, 0, ""},
      {"two pipes", {"zib", "-url_pipe", "-mx_pipe", "-server", "s"}, 1, "", "", 15, 1, ""},
      {"pipe and single", {"zib", "-txt", "t", "-ns_pipe", "-server", "s"}, 1, "", "t", 16, 1, ""},
      {"capitals", {"zib", "-CNAME", "c", "-SERVER", "s"}, 1, "", "c", 5, 0, "c"},
      {"repeated url", {"zib", "-url", "a", "-url", "b", "-server", "s"}, 1, "", "a", 1, 0, ""},
      {"ip", {"zib", "-ip", "127.0.0.1", "-server", "s"}, 1, "", "127.0.0.1", 12, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const parse_outcome out = run_parse(c.args);
    EXPECT_EQ(out.result, c.result);
    EXPECT_EQ(out.error, c.error);
    EXPECT_EQ(out.config.query_name, c.query_name);
    EXPECT_EQ(out.config.query_type, c.query_type);
    EXPECT_EQ(out.config.use_stdin, c.use_stdin);
    EXPECT_EQ(out.config.ns, c.ns);
  }
}

TEST(input_params, numbers_and_server) {
  const parse_outcome out = run_parse({"zib", "-url", "a", "-server", "127.0.0.9", "-timeout",
                                       "0x3", "-retry", "-1", "-delay", "abc", "-ipv6"});
  EXPECT_EQ(out.result, 1);
  EXPECT_EQ(out.config.server, "127.0.0.9");
  EXPECT_EQ(out.config.timeout, 3);
  EXPECT_EQ(out.config.retry, -1);
  EXPECT_EQ(out.config.delay, 0);  // refused silently
  EXPECT_EQ(out.config.ipv6, 1);
  EXPECT_EQ(out.left, arg_list{"zib"});
  EXPECT_EQ(run_parse({"zib", "-url", "a", "-server", "s", "-timeout", "abc"}).config.timeout, 1);
}

TEST(cmd_params, help_requests_and_header_line) {
  const arg_list helps[] = {{"zib"}, {"zib", "-h"}, {"zib", "-url", "a", "-HELP"},
                            {"zib", "/?"}, {"zib", "-server", "s", "--help"}};
  for (const auto& args : helps) {
    SCOPED_TRACE(args.back());
    const parse_outcome out = run_parse(args);
    EXPECT_TRUE(out.help);
    EXPECT_EQ(out.result, 0);
    EXPECT_EQ(out.error, "");
  }
  const parse_outcome out = run_parse({"./zib", "-url", "a b", "-server", "127.0.0.1"});
  EXPECT_FALSE(out.help);
  EXPECT_EQ(out.header, "zib 1.0.0 cmdline: \"./zib -url 'a b' -server 127.0.0.1\"");
}

TEST(cmd_params, report_switches) {
  struct {
    const char* label;
    arg_list extra;
    std::string separator;
    char from, to;
    std::uint8_t csv, xml, keep_space;
    std::string error;
  } const cases[] = {
      {"defaults", {}, " | ", '|', ';', 0, 0, 1, ""},
      {"csv", {"-csv"}, ",", ',', ' ', 1, 0, 1, ""},
      {"xml after csv", {"-xml", "-csv"}, "", 0, 0, 0, 1, 1, ""},
      {"csv separator", {"-csv", "-csv_separator", ";"}, ";", 0, 0, 1, 0, 1, ""},
      {"tab word", {"-csv_separator", "TAB"}, "\t", 0, 0, 0, 0, 1, ""},
      {"backslash t", {"-csv_separator", "\\t"}, "\t", 0, 0, 0, 0, 1, ""},
      {"no whitespace", {"-no_whitespace"}, "|", '|', ';', 1, 0, 0, ""},
      {"no whitespace csv", {"-csv_separator", " , ", "-no_whitespace"}, ",", ',', ' ', 1, 0, 0, ""},
      {"quoted", {"-enable_quoted_csv_fields", "-csv"}, ",", 0, 0, 1, 0, 0, ""},
      {"quoted keeps tab word", {"-enable_quoted_csv_fields", "-csv_separator", "tab"}, "tab",
       0, 0, 0, 0, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    arg_list args = {"zib", "-url", "a", "-server", "s"};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    const parse_outcome out = run_parse(args);
    EXPECT_EQ(out.result, 1);
    EXPECT_EQ(out.config.separator, c.separator);
    EXPECT_EQ(out.config.query_char_from, c.from);
    if (c.from != 0) {
      EXPECT_EQ(out.config.query_char_to, c.to);
    }
    EXPECT_EQ(out.config.csv, c.csv);
    EXPECT_EQ(out.config.xml, c.xml);
    EXPECT_EQ(out.config.keep_space, c.keep_space);
    EXPECT_EQ(out.error, c.error);
  }
}

TEST(cmd_params, patterns_filters_output_and_verbose) {
  const parse_outcome out = run_parse(
      {"zib", "-url", "a", "-server", "s", "-dateformat", "yyyy/mm", "-timeformat", "HH:MM:SS",
       "-filter", "ns*|mx*", "-FILTER", "*Mail*", "-v", "-outfile", "r.txt", "-pair_datetime"});
  EXPECT_EQ(out.error, "invalid yyyy/mm, using default format\n");
  EXPECT_EQ(out.config.date_format, "yyyy-mm-dd");
  EXPECT_EQ(out.config.time_format, "hh:mm:ss");
  EXPECT_EQ(out.config.filters, (std::vector<std::string>{"ns*|mx*", "*Mail*"}));
  EXPECT_EQ(out.config.verbose, 1);
  EXPECT_EQ(out.config.results_file, "r.txt");
  EXPECT_EQ(out.config.datetime_format, 0x10000u | '-' | 0x200 | 0x400 | 0x8000);
  EXPECT_EQ(out.left, arg_list{"zib"});

  const parse_outcome bad = run_parse({"zib", "-url", "a", "-server", "s", "-timeformat",
                                       "hh-mm-ss", "-dateformat", "MM/DD/YYYY"});
  EXPECT_EQ(bad.error, "invalid hh-mm-ss, using default format\n");
  EXPECT_EQ(bad.config.date_format, "mm/dd/yyyy");
  EXPECT_EQ(bad.config.time_format, "hh:mm:ss.xxx");
}

TEST(usage, layout_is_byte_exact) {
  std::ostringstream out;
  print_usage(out, "/usr/local/bin/zib", "zib");
  const std::string text = out.str();
  std::vector<std::string> lines;  // each with its newline
  for (std::size_t start = 0, end; start < text.size(); start = end + 1) {
    end = text.find('\n', start);
    ASSERT_NE(end, std::string::npos) << "every line ends with a newline";
    lines.push_back(text.substr(start, end - start + 1));
  }
  ASSERT_EQ(lines.size(), 39u);
  EXPECT_EQ(lines[2], std::string(77, '-') + "\n");
  EXPECT_EQ(lines[3], "\n");
  EXPECT_EQ(lines[4], "zib\n");
  EXPECT_EQ(lines[5], "\n");
  EXPECT_EQ(lines[6], "usage:\n");
  EXPECT_EQ(lines[7], " \n");
  EXPECT_EQ(lines[15], "These versions use STDIN for piping in input:\n");
  for (std::size_t i = 16; i < 22; ++i) {
    SCOPED_TRACE(lines[i]);
    EXPECT_EQ(lines[i].size(), 38u);
    EXPECT_EQ(lines[i].rfind(" zib -", 0), 0u);  // the tool name, not the path it ran from
  }
  EXPECT_EQ(lines[31], "  -csv_separator \"|\"     = use a pipe char for csv separator\n");
  EXPECT_EQ(lines[37], " cat hosts.txt | ./zib -url_pipe -server 8.8.8.8 > ./results.txt\n");
  EXPECT_EQ(lines[38], "\n");
}

}  // namespace
