#include "driver/query_run.h"

#include <chrono>

#include "net/event_loop.h"
#include "net/interrupt.h"
#include "time/clock.h"

namespace {

// Waits, without holding up a stop signal, until the pacer lets the next query go; books it.
bool wait_for_turn(send_pacer& pacer) {
  for (;;) {
    const auto now = send_pacer::clock::now();
    if (now >= pacer.next_send()) {
      pacer.sent(now);
      return true;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(pacer.next_send() - now);
    if (!wait_readable(-1, static_cast<int>(left.count())) && interrupt_signal() != 0) return false;
  }
}

// The attempts and their outcome; what was reported is in `tally`.
name_outcome attempts(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                      input_params& config, const run_extras& extras, const query_origin& origin, name_tally& tally) {
  const int wait_ms = attempt_wait_ms(config);
  for (std::int32_t attempt = 0;; ++attempt) {
    if (extras.pacer && !wait_for_turn(*extras.pacer)) return name_outcome::no_reply;
    transaction.clear();
    const bool answered = exchange(transaction, query, &config.server, wait_ms, config.port);
    if (interrupt_signal() != 0) return name_outcome::no_reply;  // the attempt was cut short: no row for it
    report_attempt(out, transaction, query, config, &tally, origin, attempt + 1);
    out.flush();
    if (answered) return classify_attempt(transaction, answered);
    // The pause follows every failed attempt, the last one included.
    if (config.delay != 0) pause_seconds(static_cast<unsigned>(config.delay));
    if (attempt >= config.retry || interrupt_signal() != 0) return classify_attempt(transaction, answered);
  }
}

}  // namespace

query_result run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                       input_params& config, const run_extras& extras, const query_origin& origin) {
  // A negative retry count switches the query off: nothing is sent, not even a row written.
  if (config.retry < 0) return {};
  name_tally tally;
  const name_outcome outcome = attempts(out, transaction, query, config, extras, origin, tally);
  if (extras.summary) extras.summary->add(tally);
  return {outcome, !tally.empty()};
}
