#include "net/send_pacer.h"

#include <algorithm>

namespace {

// Time left unused may be made up for only this far back. A wait wakes a little late now and
// then, and at high rates the next query is due sooner than that; without some credit such a
// run would fall behind its rate, with much credit it would send in bursts.
constexpr auto k_credit = std::chrono::milliseconds(2);

}  // namespace

send_pacer::send_pacer(std::int32_t per_second) {
  if (per_second > 0)
    m_interval = std::chrono::duration_cast<clock::duration>(std::chrono::seconds(1)) / per_second;
}

void send_pacer::sent(clock::time_point now) {
  if (limited()) m_next = std::max(m_next, now - k_credit) + m_interval;
}
