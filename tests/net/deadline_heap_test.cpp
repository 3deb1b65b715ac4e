#include "net/deadline_heap.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using std::chrono::milliseconds;

TEST(deadline_heap, earliest_first_and_ties_in_push_order) {
  struct row {
    const char* label;
    std::vector<std::pair<int, char>> pushes;  // due in ms, token
    std::string popped;
  };
  const row rows[] = {
      {"distinct times", {{30, 'c'}, {10, 'a'}, {20, 'b'}}, "abc"},
      {"ties", {{5, 'x'}, {5, 'y'}, {5, 'z'}, {5, 'w'}}, "xyzw"},
      {"ties among others", {{20, 'c'}, {10, 'a'}, {20, 'd'}, {10, 'b'}, {0, 'e'}, {20, 'f'}}, "eabcdf"},
  };
  const deadline_heap<char>::clock::time_point start{};
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    deadline_heap<char> heap;
    for (const auto& [ms, token] : r.pushes) heap.push(start + milliseconds(ms), token);
    std::string popped;
    while (!heap.empty()) {
      const auto due = heap.next();
      const char token = heap.top_token();
      const auto timer = heap.pop();
      EXPECT_EQ(timer.due, due);
      EXPECT_EQ(timer.token, token);
      popped += timer.token;
    }
    EXPECT_EQ(popped, r.popped);
  }
}

}  // namespace
