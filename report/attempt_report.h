// What zib writes for one finished attempt: its rows in the chosen format (text, CSV, XML or
// JSON), then the verbose dump. The transport carries the messages; this is where they turn
// into report lines, for the sequential run and the bulk run alike.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

#include "dns/dns_record.h"
#include "params/input_params.h"
#include "report/json_writer.h"
#include "report/run_summary.h"

// Where a query's name came from, for the reports that say so (JSON, -why_columns).
struct query_origin {
  std::uint64_t line = 1;    // input line number
  std::string_view asked;    // the name as asked
  std::string_view outcome;  // the name's outcome word, once its last attempt is known
};

// The outcome, and the status of the one -why_columns row, of a piped line that cannot be
// built into a query.
inline constexpr const char* k_outcome_bad_name = "bad name";

// The status word of an attempt: that of the first row report_outcome writes for it, or
// "success" for a reply whose rows are all left out (a CNAME lookup's question alone).
const char* attempt_status(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query);

// The rows of one attempt; `context` is read only by the JSON writer. Returns the number of
// rows written. With -json_names no row is written, only counted: the name's one object comes
// after its last attempt.
int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, name_tally* tally = nullptr, const row_context& context = {});

// Everything written for one finished attempt (number `attempt`, from 1): its rows, then the
// verbose dump; counted in `tally` when given. Clears the heading-pending flag, whether or not
// a row was written: the heading belongs to the run's first attempt. Returns the rows written.
int report_attempt(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, name_tally* tally, const query_origin& origin, std::int32_t attempt);

// -why_columns in the text, CSV and XML reports: the one row of a piped line that cannot be
// built into a query, so that the report, too, has a row for every line it was given. It is the
// question as the line asked it (type `type`, sent at no time, so stamped with the time it was
// read), with the status "bad name" and no server.
void report_bad_name(std::ostream& out, input_params& config, std::uint16_t type, const query_origin& origin);
