// Replay check over the reply parser's kept corpus and the captured replies: every record read
// the way the reports read it, written as a text row, a CSV row, an XML entry and a JSON line,
// and the exchange dumped as -verbose does. Slower than a fuzz target should be (the JSON lines
// are parsed again), so it is not fuzzed itself: parse_response_fuzz grows the corpus, this
// runs it through the writers in every build. Where nlohmann-json was found, every JSON line,
// with (the head of) the input as the name asked, must parse as one object.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "dns/response_parser.h"
#include "params/input_params.h"
#include "record_decoding.h"
#include "report/hex_view.h"
#include "report/json_writer.h"
#include "report/record_data.h"
#include "report/table_writer.h"
#include "report/xml_writer.h"

#ifdef ZIB_CHECK_JSON
#include <cstdlib>
#include <nlohmann/json.hpp>
#endif

namespace {

void read_like_the_renderers(const DNS_RES_RECORD& record, std::ostream& sink) {
  std::string text;
  SOA_RDATA soa;
  decode_like_the_reports(record, text, soa);
  sink << text << soa.name_server << soa.admin_mailbox;
  write_record_data(sink, record, "; ");
  record_data_string(record, text);
  sink << text;
}

// The report settings as the command line makes them: text, CSV without blanks, XML.
input_params& report_config(const char* format) {
  static input_params configs[5];
  static const bool parsed = [] {
    const char* const formats[] = {"", "-no_whitespace", "-xml", "-json", "-json"};
    for (int i = 0; i < 5; ++i) {
      arg_list args = {"zib", "-url", "x", "-server", "127.0.0.1"};
      if (*formats[i] != 0) args.emplace_back(formats[i]);
      if (i == 4) args.emplace_back("-verbose");
      std::ostringstream header;
      bool help = false;
      configs[i].parse(args, header, help);
    }
    return true;
  }();
  (void)parsed;
  const std::string_view name = format;
  return configs[name == "text" ? 0 : name == "csv" ? 1 : name == "xml" ? 2 : name == "json" ? 3 : 4];
}

void check_json_lines(const std::string& lines) {
#ifdef ZIB_CHECK_JSON
  for (std::size_t at = 0, end; at < lines.size(); at = end + 1) {
    end = lines.find('\n', at);
    if (end == std::string::npos) std::abort();  // every object ends its line
    const auto value = nlohmann::json::parse(lines.begin() + static_cast<long>(at),
                                             lines.begin() + static_cast<long>(end), nullptr, false);
    if (!value.is_object()) std::abort();
  }
#else
  (void)lines;
#endif
}

// The text row plain, the CSV row and the XML entry with the -why_columns values after the data.
void write_rows(DNS_RES_RECORD record, std::ostream& sink, const row_context& why) {
  for (const char* format : {"text", "csv"}) {
    input_params& config = report_config(format);
    config.heading_pending = 1;
    DNS_RES_RECORD row = record;  // the writer substitutes characters in the name in place
    write_table_row(row, sink, "answer", "success", config, *format == 'c' ? &why : nullptr);
  }
  write_xml_entry(record, sink, report_config("xml"), "success", &why);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size heap copy: one byte past the input is then outside any allocation, so
  // AddressSanitizer reports a read past the message instead of it going unseen.
  const std::vector<std::uint8_t> message(data, data + size);
  const std::string server = "127.0.0.1";
  dns_packet_transaction transaction;
  std::uint16_t id = 0;
  const unsigned end = parse_response(&server, 0, message, id, transaction.questions, transaction.answers,
                                      transaction.authority, transaction.additional);
  std::ostringstream sink;
  std::ostringstream json;
  // The whole input once; every row repeats the name asked, so rows get only its head, and only
  // one row the whole messages in hex: a run stays linear in the input.
  const std::string_view input(reinterpret_cast<const char*>(message.data()), message.size());
  write_json_bad_name(json, size, input, input);
  const row_context context{size, input.substr(0, 64), 1, 0, &transaction, "answered"};
  for (const auto* list : {&transaction.questions, &transaction.answers, &transaction.authority,
                           &transaction.additional}) {
    for (const auto& record : *list) {
      read_like_the_renderers(record, sink);
      write_rows(record, sink, context);
      write_json_row(record, json, "answer", "success", context, report_config("json"));
    }
  }
  if (end != 0) {
    // The dump shows what was sent first; the reply's own head stands in for the query.
    transaction.sent.assign(message.begin(), message.begin() + static_cast<long>(std::min<std::size_t>(size, 29)));
    transaction.sent_length = static_cast<std::uint32_t>(transaction.sent.size());
    transaction.received = shared_bytes(message);
    transaction.received_length = static_cast<std::uint32_t>(message.size());
    dump_attempt(sink, transaction);
    write_json_row(transaction.questions.empty() ? DNS_RES_RECORD{} : transaction.questions.front(), json,
                   "question", "invalid", context, report_config("json -verbose"));
  }
  check_json_lines(json.str());
  return 0;
}
