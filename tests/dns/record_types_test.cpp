#include "dns/record_types.h"

#include <gtest/gtest.h>

TEST(record_types, sorted_unique_and_every_gap_unk) {
  const auto table = record_types();
  for (std::size_t i = 1; i < table.size(); ++i) EXPECT_LT(table[i - 1].code, table[i].code) << table[i].name;
  const std::pair<unsigned, unsigned> gaps[] = {{0, 0},   {30, 30},   {34, 34},   {38, 38},     {43, 43},      {52, 54},
                                                {56, 98}, {104, 248}, {253, 253}, {256, 32767}, {32770, 65535}};
  unsigned unnamed = 0;
  for (const auto& [first, last] : gaps) {
    for (unsigned code = first; code <= last; ++code, ++unnamed) ASSERT_EQ(record_type_name(code), "unk") << code;
  }
  EXPECT_EQ(table.size(), 65536 - unnamed);  // so every code outside the gaps has its row
  for (const auto& row : table) EXPECT_EQ(record_type_name(row.code), row.name);
  EXPECT_EQ(record_type_name(255), "ANY");
  EXPECT_EQ(record_type_name(32769), "DLV");
}
