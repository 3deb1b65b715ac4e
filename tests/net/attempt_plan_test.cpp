#include "net/attempt_plan.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::seconds;

constexpr std::uint16_t k_servfail = 2, k_nxdomain = 3, k_refused = 5;

struct plan_flags {
  bool tcp = false;
  bool tcp_only = false;
};

// -retry 2, -delay 3 and -retry_rcodes SERVFAIL,REFUSED throughout: a name gets three counted
// attempts, the third at counted_before 2.
TEST(attempt_plan, what_follows_each_kind_of_attempt) {
  const attempt_result timed_out{};
  const attempt_result noerror{.answered = true, .rcode = 0};
  const attempt_result truncated{.answered = true, .truncated = true, .rcode = 0};
  const attempt_result tcp_truncated{.over_tcp = true, .answered = true, .truncated = true, .rcode = 0};
  const attempt_result tcp_timed_out{.over_tcp = true, .rcode = std::nullopt};
  const attempt_result refused{.answered = true, .rcode = k_refused};
  struct row {
    const char* label;
    plan_flags flags;
    attempt_result result;
    std::int32_t counted_before;
    next_step next;
    bool counted;
    bool over_tcp;
    seconds pause;
    bool rejected = false;
  };
  const row rows[] = {
      {"answered", {}, noerror, 0, next_step::done, true, false, seconds(0)},
      {"answered NXDOMAIN, not a retry code", {}, {.answered = true, .rcode = k_nxdomain}, 1, next_step::done, true, false, seconds(0)},
      {"first attempt timed out", {}, timed_out, 0, next_step::again, true, false, seconds(3)},
      {"within the limit", {}, timed_out, 1, next_step::again, true, false, seconds(3)},
      {"at the limit: done, paused all the same", {}, timed_out, 2, next_step::done, true, false, seconds(3)},
      {"truncated with -tcp", {.tcp = true}, truncated, 0, next_step::tcp_follow_up, true, true, seconds(0)},
      {"truncated with -tcp at the limit", {.tcp = true}, truncated, 2, next_step::tcp_follow_up, true, true, seconds(0)},
      {"truncated without -tcp", {}, truncated, 0, next_step::done, true, false, seconds(0)},
      {"truncated with -tcp_only", {.tcp_only = true}, tcp_truncated, 0, next_step::done, true, false, seconds(0)},
      {"truncated over TCP with both", {.tcp = true, .tcp_only = true}, tcp_truncated, 0, next_step::done, true, false, seconds(0)},
      {"truncated TCP follow-up", {.tcp = true}, tcp_truncated, 1, next_step::done, false, false, seconds(0)},
      {"failed TCP follow-up at the limit is not counted", {.tcp = true}, tcp_timed_out, 2, next_step::again, false, false, seconds(3)},
      {"failed -tcp_only attempt counts", {.tcp_only = true}, tcp_timed_out, 1, next_step::again, true, true, seconds(3)},
      {"failed -tcp_only attempt at the limit", {.tcp_only = true}, tcp_timed_out, 2, next_step::done, true, true, seconds(3)},
      {"REFUSED is a retry code", {}, refused, 0, next_step::again, true, false, seconds(3), true},
      {"REFUSED at the limit", {}, refused, 2, next_step::done, true, false, seconds(3), true},
      {"SERVFAIL over -tcp_only", {.tcp_only = true}, {.over_tcp = true, .answered = true, .rcode = k_servfail}, 0,
       next_step::again, true, true, seconds(3), true},
      {"a retry code without a reply of our ID is plain failure", {}, {.rcode = k_refused}, 0, next_step::again, true, false,
       seconds(3)},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(r.label);
    const attempt_plan plan(2, 3, r.flags.tcp, r.flags.tcp_only, {k_servfail, k_refused});
    const attempt_verdict v = plan.after(r.result, r.counted_before);
    EXPECT_EQ(v.next, r.next);
    EXPECT_EQ(v.counted, r.counted);
    EXPECT_EQ(v.over_tcp, r.over_tcp);
    EXPECT_EQ(v.pause, r.pause);
    EXPECT_EQ(v.rejected, r.rejected);
  }
}

TEST(attempt_plan, switched_off_and_first_transport) {
  EXPECT_TRUE(attempt_plan(-1, 0, false, false).switched_off());
  EXPECT_FALSE(attempt_plan(0, 0, false, false).switched_off());
  EXPECT_TRUE(attempt_plan(0, 0, false, true).first_over_tcp());
  EXPECT_FALSE(attempt_plan(0, 0, true, false).first_over_tcp());
}

}  // namespace
