#include "driver/stdin_reader.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

struct file_closer {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using file_ptr = std::unique_ptr<std::FILE, file_closer>;

file_ptr file_holding(const std::string& content) {
  file_ptr file(std::tmpfile());
  if (file) {
    std::fwrite(content.data(), 1, content.size(), file.get());
    std::rewind(file.get());
  }
  return file;
}

// Every line the reader gives, as the run loop reads them (trimming on).
std::vector<std::string> read_all(const std::string& content) {
  file_ptr file = file_holding(content);
  if (!file) return {"<no temporary file>"};
  cmd_params config;
  qvportdir::stdin_stream_ex reader(config, file.get());
  EXPECT_TRUE(reader.init_to_stdin());
  std::vector<std::string> lines;
  std::string line;
  for (int i = 0; i < 100 && reader.read(line, true); ++i) lines.push_back(line);
  EXPECT_FALSE(reader.read(line, true)) << "stays at end of input";
  EXPECT_EQ(line, "");
  return lines;
}

TEST(stdin_reader, line_vectors) {
  using lines = std::vector<std::string>;
  struct {
    const char* label;
    std::string content;
    lines expected;
  } const cases[] = {
      {"LF", "a.example\nb.example\n", {"a.example", "b.example"}},
      {"CRLF", "a.example\r\nb.example\r\n", {"a.example", "b.example"}},
      {"CR and LF in any order", "a\n\r\n\r\r\nb\n\r", {"a", "", "", "b", ""}},
      {"blanks kept", "  \nname \t\n", {"  ", "name \t"}},
      {"last line without newline", "a\nlast", {"a", "last"}},
      {"empty input", "", {}},
      {"long line in pieces", std::string(5000, 'x') + "\ny\n",
       {std::string(4095, 'x'), std::string(905, 'x'), "y"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(read_all(c.content), c.expected);
  }
}

TEST(stdin_reader, untrimmed_unbound_and_cleared_readers) {
  file_ptr file = file_holding("one\r\ntwo\n");
  ASSERT_TRUE(file) << "tmpfile failed";
  cmd_params config;
  qvportdir::stdin_stream_ex reader(config, file.get());
  std::string line = "stale";
  EXPECT_FALSE(reader.read(line, true)) << "unbound after construction";
  EXPECT_EQ(line, "");
  ASSERT_TRUE(reader.init_to_stdin());
  ASSERT_TRUE(reader.read(line, false));
  EXPECT_EQ(line, "one\r\n");
  reader.clear();
  EXPECT_FALSE(reader.read(line, true));
  ASSERT_TRUE(reader.init_to_stdin());
  ASSERT_TRUE(reader.read(line, true));
  EXPECT_EQ(line, "two");

  qvportdir::stdin_stream_ex no_input(config, nullptr);
  EXPECT_TRUE(no_input.init_to_stdin());
  EXPECT_FALSE(no_input.read(line, true));
}

}  // namespace
