#include "params/input_params.h"

#include <gtest/gtest.h>

#include <sstream>

#include "params/usage.h"

namespace {

struct parse_outcome {
  int result = 0;
  bool help = false;
  std::string error, header;
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
    std::string error, query_name;
    std::int32_t query_type;
    std::uint8_t use_stdin;
    std::string ns;
  } const cases[] = {
      {"two lookups", {"z", "-url", "a", "-ip", "b", "-server", "s"}, 0, k_combination, "a", 1, 0, ""},
      {"ns, cname", {"z", "-ns", "a", "-cname", "b", "-server", "s"}, 0, k_combination, "a", 2, 0, "b"},
      {"no server", {"z", "-url", "x"}, 0, k_no_server, "x", 1, 0, ""},
      {"server last", {"z", "-url", "x", "-server"}, 0, k_no_server, "x", 1, 0, ""},
      {"two pipes", {"z", "-url_pipe", "-mx_pipe", "-server", "s"}, 1, "", "", 15, 1, ""},
      {"pipe, single", {"z", "-txt", "t", "-ns_pipe", "-server", "s"}, 1, "", "t", 16, 1, ""},
      {"capitals", {"z", "-CNAME", "c", "-SERVER", "s"}, 1, "", "c", 5, 0, "c"},
      {"url twice", {"z", "-url", "a", "-url", "b", "-server", "s"}, 1, "", "a", 1, 0, ""},
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

TEST(input_params, numbers_server_help_and_header) {
  const parse_outcome out = run_parse({"./zib", "-url", "a b", "-server", "127.0.0.9", "-timeout",
                                       "0x3", "-retry", "-1", "-delay", "abc", "-ipv6"});
  EXPECT_EQ(out.result, 1);
  EXPECT_EQ(out.header, "zib 1.0.0 cmdline: \"./zib -url 'a b' -server 127.0.0.9 -timeout 0x3 "
                        "-retry -1 -delay abc -ipv6\"");
  EXPECT_EQ(out.config.server, "127.0.0.9");
  EXPECT_EQ((std::vector<int>{out.config.timeout, out.config.retry, out.config.delay}),
            (std::vector<int>{3, -1, 0}));
  EXPECT_EQ(out.config.ipv6, 1);
  EXPECT_EQ(out.left, arg_list{"./zib"});
  for (const arg_list& args : {arg_list{"zib"}, arg_list{"zib", "-url", "a", "-HELP"},
                               arg_list{"zib", "/?"}, arg_list{"zib", "-h", "-server", "s"}}) {
    SCOPED_TRACE(args.back());
    const parse_outcome help = run_parse(args);
    EXPECT_TRUE(help.help && help.result == 0 && help.error.empty());
  }
}

TEST(cmd_params, report_switches) {
  struct {
    const char* label;
    arg_list extra;
    std::string separator;
    std::string substitution;  // from-char and to-char, or empty for none
    std::uint8_t csv, xml, keep_space;
  } const cases[] = {
      {"defaults", {}, " | ", "|;", 0, 0, 1},
      {"csv", {"-csv"}, ",", ", ", 1, 0, 1},
      {"xml after csv", {"-xml", "-csv"}, "", "", 0, 1, 1},
      {"own separator", {"-csv", "-csv_separator", ";"}, ";", "", 1, 0, 1},
      {"tab word", {"-csv_separator", "TAB"}, "\t", "", 0, 0, 1},
      {"no whitespace", {"-no_whitespace"}, "|", "|;", 1, 0, 0},
      {"quoted", {"-enable_quoted_csv_fields", "-csv"}, ",", "", 1, 0, 0},
      {"quoted tab", {"-enable_quoted_csv_fields", "-csv_separator", "tab"}, "tab", "", 0, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    arg_list args = {"zib", "-url", "a", "-server", "s"};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    const input_params& config = run_parse(args).config;
    EXPECT_EQ(config.separator, c.separator);
    const std::string substitution =
        config.query_char_from ? std::string{config.query_char_from, config.query_char_to} : "";
    EXPECT_EQ(substitution, c.substitution);
    EXPECT_EQ((std::vector<int>{config.csv, config.xml, config.keep_space}),
              (std::vector<int>{c.csv, c.xml, c.keep_space}));
  }
}

TEST(cmd_params, patterns_filters_output_and_verbose) {
  const parse_outcome out = run_parse(
      {"zib", "-url", "a", "-server", "s", "-dateformat", "yyyy/mm", "-timeformat", "HH:MM:SS",
       "-filter", "ns*|mx*", "-FILTER", "*Mail*", "-v", "-outfile", "r.txt", "-pair_datetime"});
  EXPECT_EQ(out.error, "invalid yyyy/mm, using default format\n");
  EXPECT_EQ(out.config.date_format + " " + out.config.time_format, "yyyy-mm-dd hh:mm:ss");
  EXPECT_EQ(out.config.filters, (std::vector<std::string>{"ns*|mx*", "*Mail*"}));
  EXPECT_EQ(out.config.verbose, 1);
  EXPECT_EQ(out.config.results_file, "r.txt");
  EXPECT_EQ(out.config.datetime_format, 0x10000u | '-' | 0x200 | 0x400 | 0x8000);
  EXPECT_EQ(out.left, arg_list{"zib"});
  const parse_outcome bad = run_parse({"zib", "-url", "a", "-server", "s", "-timeformat",
                                       "hh-mm-ss", "-dateformat", "MM/DD/YYYY"});
  EXPECT_EQ(bad.error, "invalid hh-mm-ss, using default format\n");
  EXPECT_EQ(bad.config.date_format + " " + bad.config.time_format, "mm/dd/yyyy hh:mm:ss.xxx");
}

TEST(usage, layout_is_byte_exact) {
  std::ostringstream out;
  print_usage(out, "/usr/local/bin/zib", "zib");
  std::vector<std::string> lines;  // each with its newline
  std::istringstream in(out.str());
  for (std::string line; std::getline(in, line) && lines.size() < 100;) lines.push_back(line + "\n");
  ASSERT_EQ(lines.size(), 39u);
  EXPECT_EQ(out.str().substr(out.str().find("usage:\n")).size(), 1373u);
  EXPECT_EQ(lines[2] + lines[3] + lines[4] + lines[5] + lines[6] + lines[7],
            std::string(77, '-') + "\n\nzib\n\nusage:\n \n");
  for (std::size_t i = 16; i < 22; ++i) {
    SCOPED_TRACE(lines[i]);
    EXPECT_EQ(lines[i].size(), 38u);
    EXPECT_EQ(lines[i].rfind(" zib -", 0), 0u);  // the tool name, not the path it ran from
  }
  EXPECT_EQ(lines[31], "  -csv_separator \"|\"     = use a pipe char for csv separator\n");
  EXPECT_EQ(lines[37] + lines[38],
            " cat hosts.txt | ./zib -url_pipe -server 8.8.8.8 > ./results.txt\n\n");
}

}  // namespace
