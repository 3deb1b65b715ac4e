#include "dns/record_types.h"

#include <gtest/gtest.h>

// Every code reads back from its usual name and from its report name, so the table cannot
// hold a name twice or lose its order; the report's column keeps its own names and gaps.
TEST(record_types, names_read_back_for_every_code) {
  for (std::uint32_t code = 0; code <= 65535; ++code) {
    const auto type = static_cast<std::uint16_t>(code);
    ASSERT_EQ(type_code(usual_type_name(type)), code);
    if (record_type_name(type) != "unk") {
      ASSERT_EQ(type_code(record_type_name(type)), code);
    }
  }
  for (const auto& [code, usual, report] : {std::tuple<std::uint16_t, std::string_view, std::string_view>{43, "DS", "unk"},
                                            {23, "NSAP-PTR", "NSAP_PTR"}, {65, "HTTPS", "unk"}, {1, "A", "A"},
                                            {253, "MAILB", "unk"}, {30, "NXT", "unk"}, {55, "HIP", "HIP"},
                                            {39, "DNAME", "DNAME"}, {32769, "DLV", "DLV"}, {65280, "TYPE65280", "unk"}}) {
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
