#include "report/attempt_report.h"

#include "report/hex_view.h"
#include "report/table_writer.h"
#include "report/xml_writer.h"
#include "time/clock.h"

namespace {

// One row to the writer of the chosen format, counted when the run keeps a summary.
struct row_writer {
  std::ostream& out;
  input_params& config;
  name_tally* tally;
  const row_context& context;  // read only by the JSON writer
  int& written;

  void operator()(DNS_RES_RECORD& record, const char* comment, const char* status) const {
    // With -json_names rows are only counted: the name's one object follows its last attempt.
    if (!config.json_names) write(record, comment, status);
    if (tally) tally->count_row(status);
    ++written;
  }

  void write(DNS_RES_RECORD& record, const char* comment, const char* status) const {
    const row_context* why = config.why_columns ? &context : nullptr;
    if (config.json)
      write_json_row(record, out, comment, status, context, config);
    else if (config.xml)
      write_xml_entry(record, out, config, status, why);  // the XML entry has no comment field
    else
      write_table_row(record, out, comment, status, config, why);
  }
};

}  // namespace

int report_attempt(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, name_tally* tally, const query_origin& origin, std::int32_t attempt) {
  const int rows = report_outcome(out, transaction, query, config, tally,
                                  {origin.line, origin.asked, attempt, query.timestamp, &transaction, origin.outcome});
  config.heading_pending = 0;
  // The dump would break the lines of JSON and of RFC 4180 CSV.
  if (config.verbose && config.table_report() && !config.rfc4180) dump_attempt(out, transaction);
  if (tally) tally->count_attempt(transaction, query);
  return rows;
}

const char* attempt_status(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query) {
  // Over TCP the wait covers connecting and writing too, so a time-out may come before the
  // query is out.
  if (transaction.fault == stream_fault::timed_out) return k_status_timeout;
  if (transaction.sent_length == 0) return k_status_sock_err;
  if (transaction.fault == stream_fault::broken) return k_status_tcp_err;
  if (transaction.received_length == 0) return k_status_timeout;
  const bool answered = !transaction.answers.empty();
  if (transaction.questions.empty() && !answered && transaction.authority.empty() && transaction.additional.empty())
    return k_status_unkresp;
  // Questions are shown only when they went unanswered, and never for a CNAME query, whose
  // empty answer is a meaningful "no alias" rather than a failure.
  if (!answered && query.type != k_type_cname && !transaction.questions.empty()) return k_status_invalid;
  return k_status_success;
}

int report_outcome(std::ostream& out, dns_packet_transaction& transaction, DNS_RES_RECORD& query,
                   input_params& config, name_tally* tally, const row_context& context) {
  int written = 0;
  const row_writer write_row{out, config, tally, context, written};
  // Without a parsed reply the row is the query record itself: name, type, server, ID and
  // the time of sending.
  const char* status = attempt_status(transaction, query);
  const std::string_view word = status;
  if (word == k_status_sock_err || word == k_status_timeout || word == k_status_tcp_err || word == k_status_unkresp) {
    write_row(query, k_section_question, status);
    return written;
  }
  if (word == k_status_invalid) {
    for (DNS_RES_RECORD& question : transaction.questions) write_row(question, k_section_question, k_status_invalid);
  }
  for (DNS_RES_RECORD& record : transaction.answers) write_row(record, k_section_answer, k_status_success);
  for (DNS_RES_RECORD& record : transaction.authority) write_row(record, k_section_authority, k_status_success);
  for (DNS_RES_RECORD& record : transaction.additional) write_row(record, k_section_additions, k_status_success);
  return written;
}

void report_bad_name(std::ostream& out, input_params& config, std::uint16_t type, const query_origin& origin) {
  DNS_RES_RECORD question;
  question.name = origin.asked;
  question.type = type;
  question.class_ = k_class_in;
  question.timestamp = now_timestamp();
  int written = 0;
  const row_writer write_row{out, config, nullptr, {origin.line, origin.asked, 1, 0, nullptr, origin.outcome}, written};
  write_row(question, k_section_question, k_outcome_bad_name);
  config.heading_pending = 0;
}
