#include "driver/query_run.h"

#include <chrono>
#include <optional>

#include "net/attempt_plan.h"
#include "net/event_loop.h"
#include "net/interrupt.h"
#include "report/name_object_writer.h"
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

// The attempts and the name's outcome, or nullopt when a stop signal cut them short; what was
// reported is in `tally`, and the last attempt in `transaction` and `query`.
// With `held`, finished attempts go there instead of being reported.
std::optional<name_outcome> attempts(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                                     input_params& config, const run_extras& extras, const query_origin& origin,
                                     name_tally& tally, std::uint64_t& made, std::vector<finished_attempt>* held) {
  const int wait_ms = attempt_wait_ms(config);
  const server_address server = server_of(config);
  // One attempt, reported as soon as it is over. False when a stop signal cut it short: then
  // it writes nothing.
  const auto attempt_once = [&](bool over_tcp, bool& answered) {
    if (extras.pacer && !wait_for_turn(*extras.pacer)) return false;
    transaction.clear();
    answered = over_tcp ? exchange_over_tcp(transaction, query, server, wait_ms)
                        : exchange(transaction, query, server, wait_ms);
    if (interrupt_signal() != 0) return false;
    ++made;
    if (held != nullptr) {
      held->push_back({query, transaction, answered});
      return true;
    }
    report_attempt(out, transaction, query, config, &tally, origin, static_cast<std::int32_t>(made));
    out.flush();
    return true;
  };
  const attempt_plan plan(config.retry, config.delay, config.tcp != 0, config.tcp_only != 0, config.retry_rcodes);
  std::int32_t counted = 0;
  for (bool over_tcp = plan.first_over_tcp();;) {
    bool answered = false;
    if (!attempt_once(over_tcp, answered)) return std::nullopt;
    const attempt_verdict verdict = plan.after(result_of(transaction, query, answered), counted);
    if (verdict.counted) ++counted;
    over_tcp = verdict.over_tcp;
    if (verdict.next == next_step::tcp_follow_up) continue;
    // The pause follows every failed attempt, the last one included.
    if (verdict.pause.count() != 0) pause_seconds(static_cast<unsigned>(verdict.pause.count()));
    if (verdict.next == next_step::done) return classify_attempt(transaction, answered);
    if (interrupt_signal() != 0) return std::nullopt;
  }
}

}  // namespace

query_settings query_settings_of(const input_params& config) {
  query_settings settings;
  settings.ip6_reverse = config.ip6_lookup != 0;
  if (config.edns != 0) settings.edns = edns_request{static_cast<std::uint16_t>(config.edns), config.dnssec != 0};
  return settings;
}

std::string_view outcome_word(name_outcome outcome) {
  switch (outcome) {
    case name_outcome::answered: return "answered";
    case name_outcome::empty: return "empty";
    case name_outcome::failed: return "failed";
    case name_outcome::no_reply: break;
  }
  return "no reply";
}

name_report report_name(std::ostream& out, std::vector<finished_attempt>& attempts, input_params& config,
                        name_tally* tally, const query_origin& origin, const resolution_note* note) {
  name_report report;
  if (attempts.empty()) return report;
  const finished_attempt& last = attempts.back();
  report.outcome = classify_attempt(last.transaction, last.answered);
  if (note != nullptr && !note->reason.empty()) report.outcome = std::max(report.outcome, name_outcome::failed);
  const query_origin judged{origin.line, origin.asked, outcome_word(report.outcome)};
  for (std::size_t i = 0; i < attempts.size(); ++i) {
    finished_attempt& a = attempts[i];
    const int rows = report_attempt(out, a.transaction, a.query, config, tally, judged, static_cast<std::int32_t>(i + 1));
    if (i == 0) report.rows_first = rows > 0;
  }
  if (config.json_names)
    write_json_name(out, {origin.line, origin.asked, &last.query, &last.transaction, attempts.size(),
                          judged.outcome, note != nullptr ? note->reason : std::string_view{},
                          note != nullptr ? note->json_members : std::string_view{}}, config);
  return report;
}

query_result run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                       input_params& config, const run_extras& extras, const query_origin& origin) {
  // A negative retry count switches the query off: nothing is sent, not even a row written.
  if (config.retry < 0) return {};
  name_tally tally;
  std::uint64_t made = 0;
  if (config.why_columns) {
    std::vector<finished_attempt> held;
    if (!attempts(out, transaction, query, config, extras, origin, tally, made, &held)) return {};
    const name_outcome outcome = report_name(out, held, config, &tally, origin).outcome;
    out.flush();
    if (extras.summary) extras.summary->add(tally);
    return {outcome, true};
  }
  const std::optional<name_outcome> outcome =
      attempts(out, transaction, query, config, extras, origin, tally, made, nullptr);
  if (config.json_names) {
    // The object needs the whole name; one cut short is asked again by a resumed run.
    if (!outcome) return {};
    write_json_name(out, {origin.line, origin.asked, &query, &transaction, made, outcome_word(*outcome), {}, {}}, config);
    out.flush();
  }
  if (extras.summary) extras.summary->add(tally);
  return {outcome.value_or(name_outcome::no_reply), !tally.empty()};
}
