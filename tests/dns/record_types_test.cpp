#include "dns/record_types.h"

#include <gtest/gtest.h>

// Every code reads back from its usual name, so neither table can hold a name twice or lose
// its order; the report table keeps its own names.
TEST(record_types, usual_names_read_back_for_every_code) {
  for (std::uint32_t code = 0; code <= 65535; ++code)
    ASSERT_EQ(type_code(usual_type_name(static_cast<std::uint16_t>(code))), code);
  for (const auto& [code, usual, report] : {std::tuple<std::uint16_t, std::string_view, std::string_view>{43, "DS", "unk"},
                                            {23, "NSAP-PTR", "NSAP_PTR"}, {65, "HTTPS", "unk"}, {1, "A", "A"},
                                            {39, "DNAME", "DNAME"}, {65280, "TYPE65280", "unk"}}) {
    EXPECT_EQ(usual_type_name(code), usual);
    EXPECT_EQ(record_type_name(code), report);
  }
}

TEST(record_types, mnemonics_read) {
  for (const auto& [text, code] : {std::pair<std::string_view, int>{"mx", 15}, {"NSAP_PTR", 23}, {"Type065", 65},
                                   {"TYPE65535", 65535}, {"TYPE65536", -1}, {"TYPE", -1}, {"TYPE1x", -1},
                                   {"", -1}, {"A ", -1}, {"unk", -1}}) {
    const auto read = type_code(text);
    EXPECT_EQ(read ? int{*read} : -1, code) << text;
  }
}
