#include "driver/stdin_reader.h"

#include <gtest/gtest.h>

#include "params/input_params.h"

// Lines come only while the reader is bound; line ends go with trimming; the end stays the end.
TEST(stdin_stream_ex, reads_while_bound_and_stays_finished) {
  char text[] = "a\r\nb\n";
  std::FILE* file = fmemopen(text, sizeof text - 1, "r");
  input_params config;
  qvportdir::stdin_stream_ex reader(config, file);
  std::string line = "stale";
  EXPECT_FALSE(reader.read(line, true));
  EXPECT_EQ(line, "");
  ASSERT_TRUE(reader.init_to_stdin());
  EXPECT_TRUE(reader.read(line, true));
  EXPECT_EQ(line, "a");
  EXPECT_TRUE(reader.read(line, false));
  EXPECT_EQ(line, "b\n");
  EXPECT_FALSE(reader.read(line, true));
  std::fclose(file);
}
