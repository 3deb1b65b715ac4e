// Hostile standard input: NUL bytes, bytes that are not UTF-8, megabyte lines, a million lines.
// Nothing listens on 127.0.0.204, so with -timeout 0 every name gets one "timeout" row at once
// (the port-unreachable error), which shows the name exactly as it was asked. -retry -1 asks
// nothing and writes nothing per line, so huge inputs run at the speed of the reader.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "support/process_runner.h"
#include "support/sanitizer.h"


namespace {

using namespace std::chrono_literals;

const std::string k_nowhere = "127.0.0.204";

// The query column of every "timeout" row, its padding to 40 columns removed.
std::vector<std::string> asked(const std::string& report) {
  std::vector<std::string> names;
  const std::string marker = " | question  | timeout |";
  for (std::size_t at = 0, end; (end = report.find('\n', at)) != std::string::npos; at = end + 1) {
    const std::string row = report.substr(at, end - at);
    const auto cut = row.find(marker);
    if (cut == std::string::npos) continue;
    const auto name = row.substr(0, cut);  // no name here ends in a blank
    names.push_back(name.substr(0, name.find_last_not_of(' ') + 1));
  }
  return names;
}

TEST(input_limits, lines_are_cut_at_nul_bytes_and_4095_byte_pieces) {
  std::string megabyte_line;
  while (megabyte_line.size() < 1048576) megabyte_line += "abcdefg.";
  megabyte_line.resize(1048576);  // 256 pieces of 4095 bytes and one of 256
  std::vector<std::string> megabyte_pieces;
  for (std::size_t at = 0; at < megabyte_line.size(); at += 4095) megabyte_pieces.push_back(megabyte_line.substr(at, 4095));

  struct input_case {
    const char* label;
    std::string input;
    std::vector<std::string> names;
  } cases[] = {
      // fgets keeps reading past a NUL up to the line end, but the line is the text before it.
      {"nul inside a line", std::string("abc\0def.test\nxyz.test\n", 22), {"abc", "xyz.test"}},
      {"nul first: an empty line, skipped", std::string("\0abc\n\0\nok.test", 14), {"ok.test"}},
      {"bytes that are not UTF-8 go out as they stand", "\xff\xfe.test\n\xc3(.test\r\n", {"\xff\xfe.test", "\xc3(.test"}},
      {"a megabyte line arrives in pieces", megabyte_line + "\n", megabyte_pieces},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const auto r = run_zib({"-url_pipe", "-server", k_nowhere, "-timeout", "0"}, c.input, 60s);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    const auto names = asked(r.out);
    // Compared name by name: a failure then shows the first difference, not a megabyte.
    ASSERT_EQ(names.size(), c.names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
      ASSERT_TRUE(names[i] == c.names[i]) << "name " << i << ": " << names[i].substr(0, 80) << "...";
  }
}

// A million lines cost no more memory than ten thousand: nothing accumulates per line.
TEST(input_limits, a_million_lines_keep_memory_flat) {
  const auto run_lines = [](int count) {
    std::string input;
    for (int i = 0; i < count; ++i) input += "host" + std::to_string(i) + ".test\n";
    process_options options;
    options.stdin_text = std::move(input);
    options.limit = 120s;
    return run_zib({"-url_pipe", "-server", k_nowhere, "-retry", "-1"}, options);
  };
  const auto small = run_lines(10000);
  const auto large = run_lines(1000000);
  for (const auto* r : {&small, &large}) {
    EXPECT_EQ(r->status, 0);
    EXPECT_FALSE(r->timed_out);
    EXPECT_EQ(r->err, "");
    EXPECT_EQ(std::count(r->out.begin(), r->out.end(), '\n'), 1) << "only the header line";
  }
  if (small.peak_rss_kb == 0) GTEST_SKIP() << "no /proc to read the child's peak RSS from";
  if (k_address_sanitizer) GTEST_SKIP() << "AddressSanitizer keeps freed memory in quarantine: RSS is not comparable";
  EXPECT_LE(large.peak_rss_kb, small.peak_rss_kb + 1024) << "peak RSS in kB, 10,000 lines: " << small.peak_rss_kb;
  RecordProperty("peak_rss_kb_10k", static_cast<int>(small.peak_rss_kb));
  RecordProperty("peak_rss_kb_1m", static_cast<int>(large.peak_rss_kb));
}

}  // namespace
