// One name asked the sequential way: up to retry+1 attempts, each on the wire through
// net/query_transaction, each reported through report/attempt_report as soon as it is over.
#pragma once

#include <ostream>
#include <string_view>
#include <vector>

#include "dns/dns_record.h"
#include "dns/query_builder.h"
#include "net/query_transaction.h"
#include "net/send_pacer.h"
#include "params/input_params.h"
#include "report/attempt_report.h"
#include "report/run_summary.h"

// What a run shares between its names beyond the configuration; both optional.
struct run_extras {
  send_pacer* pacer = nullptr;      // -qps
  run_summary* summary = nullptr;   // progress line and -stats
};

// How a name asked one at a time ended: its outcome, and whether any attempt of it was reported
// (a stop signal during its first wait leaves it unreported).
struct query_result {
  name_outcome outcome = name_outcome::no_reply;
  bool reported = false;
};

// How the run's queries are built beyond name and type: -ip6, -edns, -dnssec.
query_settings query_settings_of(const input_params& config);
// The -json_names word for how a name ended, as -strict_exit judges it.
std::string_view outcome_word(name_outcome outcome);

// An attempt that is over, kept for its name's report.
struct finished_attempt {
  DNS_RES_RECORD query;  // as sent: its time and server
  dns_packet_transaction transaction;
  bool answered = false;
};

// How a finished name was reported: its outcome, and whether its first attempt wrote rows (a
// bulk run's heading goes before them).
struct name_report {
  name_outcome outcome = name_outcome::no_reply;
  bool rows_first = false;
};

// What an iterative resolution adds to a name's report: why it failed, when more than its last
// reply tells (the name then counts as failed at least), and the members its -json_names object
// gains, rendered (a comma list of JSON members).
struct resolution_note {
  std::string_view reason;
  std::string_view json_members;
};

// A name's report once its last attempt is over: every attempt's rows and dump, each row saying
// the name's outcome under -why_columns, then with -json_names the name's one object.
name_report report_name(std::ostream& out, std::vector<finished_attempt>& attempts, input_params& config,
                        name_tally* tally, const query_origin& origin, const resolution_note* note = nullptr);

// Writes every attempt's rows (and the verbose dump), flushed after each attempt; with
// -json_names, the name's one object after its last attempt. A stop signal ends it between
// attempts, or during the wait, in which case that attempt writes nothing and the name counts
// as never answered; with -json_names a name cut short writes nothing and is not reported.
// With -why_columns the rows need the name's outcome: they are written after its last attempt,
// and a name cut short writes nothing, as with -json_names.
// With -tcp, a truncated reply over UDP is followed at once by one attempt over TCP, which does
// not count against -retry; with -tcp_only every attempt goes over TCP.
query_result run_query(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                       input_params& config, const run_extras& extras = {}, const query_origin& origin = {});
