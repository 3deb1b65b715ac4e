#include "dns/record_types.h"

#include <gtest/gtest.h>

namespace {

TEST(record_types, table_is_sorted_without_duplicates) {
  const auto table = record_types();
  ASSERT_FALSE(table.empty());
  for (std::size_t i = 1; i < table.size(); ++i) EXPECT_LT(table[i - 1].code, table[i].code) << table[i].name;
  for (const auto& row : table) EXPECT_EQ(record_type_name(row.code), row.name);
}

TEST(record_types, gaps_are_unk) {
  struct range {
    unsigned first, last;
  };
  const range gaps[] = {{0, 0},     {30, 30},   {34, 34},       {38, 38},       {43, 43},
                        {52, 54},   {56, 98},   {104, 248},     {253, 253},     {256, 32767},
                        {32770, 65535}};
  for (const auto& gap : gaps) {
    for (unsigned code = gap.first; code <= gap.last; ++code) {
      ASSERT_EQ(record_type_name(static_cast<std::uint16_t>(code)), "unk") << code;
    }
  }
  // The gaps above cover all but 61 codes, so every other code has a row.
  EXPECT_EQ(record_types().size(), 61u);
  const std::pair<std::uint16_t, std::string_view> spots[] = {
      {1, "A"}, {23, "NSAP_PTR"}, {28, "AAAA"}, {51, "NSEC3PARAM"}, {255, "ANY"}, {32769, "DLV"}};
  for (const auto& [code, name] : spots) EXPECT_EQ(record_type_name(code), name);
}

}  // namespace
