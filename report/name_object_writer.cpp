#include "report/name_object_writer.h"

#include "dns/edns.h"

#include <vector>

#include "dns/name_codec.h"
#include "dns/record_types.h"
#include "report/attempt_report.h"
#include "report/json_writer.h"
#include "report/record_data.h"
#include "report/record_text.h"
#include "report/stream_format.h"

namespace {

void type_members(std::string& out, std::uint16_t type) {
  json_number_member(out, "type", type);
  json_string_member(out, "type_name", usual_type_name(type));
}

void record_object(std::string& out, const DNS_RES_RECORD& record) {
  out += '{';
  json_string_member(out, "name", record.name);
  type_members(out, record.type);
  json_number_member(out, "ttl", record.ttl);
  json_rdata_member(out, record, false);
  if (holds_character_strings(record.type)) json_txt_member(out, record, false);
  out += '}';
}

// A section's records as an array; [] for a name without a reply.
void section_member(std::string& out, std::string_view name, const std::vector<DNS_RES_RECORD>* records) {
  json_key(out, name);
  out += '[';
  if (records != nullptr) {
    for (std::size_t i = 0; i < records->size(); ++i) {
      if (i != 0) out += ',';
      record_object(out, (*records)[i]);
    }
  }
  out += ']';
}

// The question's name read back from the query as sent, so -ip shows the reverse name asked.
void query_member(std::string& out, const DNS_RES_RECORD* query) {
  const auto name = query != nullptr ? record_name_at(*query, k_header_size) : std::nullopt;
  if (name)
    json_string_member(out, "query", *name);
  else
    json_null_member(out, "query");
}

// The last attempt's status word and response code, and its round trip; null for a bad name.
void attempt_members(std::string& out, const name_result& name) {
  const dns_packet_transaction* t = name.transaction;
  if (t == nullptr || name.query == nullptr) {
    json_null_member(out, "status");
  } else {
    json_string_member(out, "status", attempt_status(*t, *name.query));
  }
  const auto header = t != nullptr && t->received_length != 0 ? read_message_header(t->received) : std::nullopt;
  json_rcode_member(out, header ? &*header : nullptr, header ? find_opt_record(t->additional) : std::nullopt);
  if (t != nullptr)
    json_transport_member(out, t);
  else
    json_null_member(out, "transport");
  json_rtt_member(out, name.query != nullptr ? name.query->timestamp : 0, t);
}

}  // namespace

void write_json_name(std::ostream& out, const name_result& name, const input_params& config) {
  report_row& row = shared_report_row();
  row.clear();
  std::string& line = row.text();
  line += '{';
  json_number_member(line, "line", name.line);
  json_string_member(line, "asked", name.asked);
  query_member(line, name.query);
  // The type asked: a name's own under -qtypes.
  const std::uint16_t run_type = config.asked_type.value_or(static_cast<std::uint16_t>(config.query_type));
  type_members(line, name.query != nullptr && !config.asked_types.empty() ? name.query->type
                     : name.type != 0                                     ? name.type
                                                                          : run_type);
  // The last attempt's server; a bad name asked none: the run's one server, or null among many.
  if (name.query != nullptr && name.transaction != nullptr) {
    json_string_member(line, "server", name.query->server);
    json_number_member(line, "port", name.transaction->server_port);
  } else if (config.iterative != 0) {
    json_null_member(line, "server");
    json_null_member(line, "port");
  } else if (config.resolvers.empty()) {
    json_string_member(line, "server", config.server);
    json_number_member(line, "port", config.port);
  } else if (config.resolvers.size() == 1) {
    json_string_member(line, "server", config.resolvers.front().address);
    json_number_member(line, "port", config.resolvers.front().port.value_or(config.port));
  } else {
    json_null_member(line, "server");
    json_null_member(line, "port");
  }
  if (name.query != nullptr)
    json_time_member(line, name.query->timestamp);
  else
    json_null_member(line, "time");
  json_number_member(line, "attempts", name.attempts);
  json_string_member(line, "outcome", name.outcome);
  if (!name.reason.empty()) json_string_member(line, "reason", name.reason);
  if (!name.more.empty()) {
    line += ',';
    line += name.more;
  }
  attempt_members(line, name);
  const dns_packet_transaction* t = name.transaction;
  section_member(line, "answer", t != nullptr ? &t->answers : nullptr);
  section_member(line, "authority", t != nullptr ? &t->authority : nullptr);
  section_member(line, "additional", t != nullptr ? &t->additional : nullptr);
  line += "}\n";
  row.write_to(out);
}
