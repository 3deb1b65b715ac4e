#include "driver/hold_queue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr std::size_t k_no_limit = std::size_t{1} << 30;

rendered_name named(std::uint64_t line, std::size_t size = 8) {
  rendered_name name;
  name.line = line;
  name.bytes = std::string(size, static_cast<char>('a' + line % 26));
  return name;
}

// Three names on input lines 11, 13 and 14 (10 lines came before, line 12 holds no name); each
// step finishes one of them and drains.
TEST(hold_queue, names_come_out_in_order_or_as_finished) {
  struct step {
    std::size_t finished;  // index of the name finished
    std::vector<std::uint64_t> written;
    std::uint64_t resume_line;
  };
  struct row {
    const char* label;
    bool ordered;
    std::vector<step> steps;
  };
  const row rows[] = {
      {"ordered", true, {{1, {}, 10}, {2, {}, 10}, {0, {11, 13, 14}, 14}}},
      {"ordered, the first finished first", true, {{0, {11}, 11}, {2, {}, 11}, {1, {13, 14}, 14}}},
      {"unordered", false, {{1, {13}, 10}, {2, {14}, 10}, {0, {11}, 14}}},
      {"unordered, the first finished first", false, {{0, {11}, 11}, {2, {14}, 11}, {1, {13}, 14}}},
  };
  const std::uint64_t lines[] = {11, 13, 14};
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    hold_queue queue(r.ordered, k_no_limit, 10);
    std::vector<std::uint64_t> sequence;
    for (int i = 0; i < 3; ++i) sequence.push_back(queue.start());
    for (const step& s : r.steps) {
      queue.finish(sequence[s.finished], named(lines[s.finished]));
      std::vector<std::uint64_t> written;
      queue.drain([&](const rendered_name& name) {
        EXPECT_EQ(name.bytes, named(name.line).bytes);
        written.push_back(name.line);
      });
      EXPECT_EQ(written, s.written) << "after finishing line " << lines[s.finished];
      EXPECT_EQ(queue.resume_line(), s.resume_line);
    }
    EXPECT_TRUE(queue.empty());
  }
}

// A slow first name holds back the rest: they start until what they hold reaches the limit.
TEST(hold_queue, room_until_the_held_bytes_reach_the_limit) {
  std::size_t held = 0;
  {
    hold_queue probe(true, k_no_limit, 0);
    probe.start();
    probe.finish(probe.start(), named(2, 5000));
    held = probe.held_bytes();
    ASSERT_GE(held, 5000u);
  }
  for (const std::size_t limit : {held, held + 1}) {
    SCOPED_TRACE(limit);
    hold_queue queue(true, limit, 0);
    const std::uint64_t slow = queue.start();
    EXPECT_TRUE(queue.has_room());
    queue.finish(queue.start(), named(2, 5000));
    EXPECT_EQ(queue.has_room(), limit > held);
    queue.finish(slow, named(1));
    queue.drain([](const rendered_name&) {});
    EXPECT_TRUE(queue.has_room());
    EXPECT_EQ(queue.held_bytes(), 0u);
    EXPECT_EQ(queue.resume_line(), 2u);
  }
}

}  // namespace
