#include "params/input_params.h"

#include <gtest/gtest.h>

#include <sstream>

// What each setting does to the report shows end to end; these are the settings a report
// cannot tell apart (XML ignores the CSV flag, the type before any lookup option).
TEST(input_params, settings_behind_the_report) {
  const struct {
    arg_list args;
    int xml, csv, keep_space, use_stdin;
    std::int32_t type;
    std::uint16_t port;
  } cases[] = {
      {{"zib", "-server", "s"}, 0, 0, 1, 0, 1, 53},
      {{"zib", "-csv", "-xml", "-url", "a", "-server", "s"}, 1, 0, 1, 0, 1, 53},
      {{"zib", "-enable_quoted_csv_fields", "-txt_pipe", "-server", "s", "-port", "o17"}, 0, 0, 0, 1, 16, 15},
  };
  for (const auto& c : cases) {
    input_params config;
    arg_list args = c.args;
    std::ostringstream header;
    bool help = true;
    ASSERT_EQ(config.parse(args, header, help), 1);
    EXPECT_EQ(std::vector<int>({config.xml, config.csv, config.keep_space, config.use_stdin, config.query_type, config.port}),
              std::vector<int>({c.xml, c.csv, c.keep_space, c.use_stdin, c.type, c.port}));
  }
}
