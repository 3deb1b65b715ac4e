#include "driver/stdin_reader.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using file_ptr = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

file_ptr file_holding(const std::string& content) {
  file_ptr file(std::tmpfile(), std::fclose);
  if (file) {
    std::fwrite(content.data(), 1, content.size(), file.get());
    std::rewind(file.get());
  }
  return file;
}

TEST(stdin_reader, line_vectors) {
  struct {
    const char* label;
    std::string content;
    std::vector<std::string> lines;  // as the run loop reads them, trimming on
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
    file_ptr file = file_holding(c.content);
    ASSERT_TRUE(file) << "tmpfile failed";
    cmd_params config;
    qvportdir::stdin_stream_ex reader(config, file.get());
    std::string line = "stale";
    EXPECT_FALSE(reader.read(line, true)) << "unbound after construction";
    EXPECT_TRUE(reader.init_to_stdin());
    std::vector<std::string> lines;
    for (int i = 0; i < 100 && reader.read(line, true); ++i) lines.push_back(line);
    EXPECT_EQ(lines, c.lines);
    EXPECT_FALSE(reader.read(line, true)) << "stays at end of input";
    EXPECT_EQ(line, "");
  }
}

}  // namespace
