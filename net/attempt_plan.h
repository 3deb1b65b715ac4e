// What follows an attempt, written once for the one-at-a-time run and the bulk run alike: the
// name is done, asked again (after -delay's pause, within -retry), or followed at once over TCP
// because its reply came truncated (-tcp). -tcp_only sends every attempt over TCP, and a reply
// whose response code is one of -retry_rcodes counts as a failed attempt. No I/O and no clock:
// given how an attempt ended, it says what comes next.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "dns/dns_record.h"
#include "net/server_pool.h"

// How an attempt ended, as far as the plan cares.
struct attempt_result {
  bool over_tcp = false;   // it went over TCP
  bool answered = false;   // a reply that parsed and carries the query's ID
  bool truncated = false;  // that reply has TC set
  std::optional<std::uint16_t> rcode;  // its response code (with EDNS's upper bits), if it had a header
};

enum class next_step : std::uint8_t {
  done,           // the name is finished
  again,          // another attempt, counted against -retry, after the pause
  tcp_follow_up,  // at once, over TCP, to the same server; not counted against -retry
};

struct attempt_verdict {
  next_step next = next_step::done;
  bool counted = true;   // this attempt counted against -retry (a TCP follow-up does not)
  bool over_tcp = false;  // the next attempt goes over TCP
  // A failed attempt is followed by -delay's pause: before the next attempt, and one at a time
  // also after the last one (the run loop sleeps it there).
  std::chrono::seconds pause{0};
  // The reply was usable but its response code asks to go elsewhere (-retry_rcodes).
  bool rejected = false;
};

class attempt_plan {
 public:
  attempt_plan(std::int32_t retry, std::int32_t delay_seconds, bool tcp, bool tcp_only,
               std::vector<std::uint16_t> retry_rcodes = {});

  // A negative retry count switches the queries off: nothing is sent, no row written.
  bool switched_off() const { return m_retry < 0; }
  // Whether a name's first attempt goes over TCP.
  bool first_over_tcp() const { return m_tcp_only; }
  // What follows `result`, for a name whose attempts so far (this one not included) counted
  // `counted_before` against -retry.
  attempt_verdict after(const attempt_result& result, std::int32_t counted_before) const;

 private:
  std::int32_t m_retry;
  std::chrono::seconds m_pause;
  bool m_tcp;
  bool m_tcp_only;
  std::vector<std::uint16_t> m_retry_rcodes;
};

// How `transaction`, the exchange of `query`, ended: as exchange() or take_reply() said
// (`answered`), and what the reply's header tells.
attempt_result result_of(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query, bool answered);

// What the server pool learns from an attempt.
query_fate fate_of(const dns_packet_transaction& transaction, const attempt_result& result);
