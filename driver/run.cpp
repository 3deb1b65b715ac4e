#include "driver/run.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "dns/dns_record.h"
#include "dns/query_builder.h"
#include "driver/error_printer.h"
#include "driver/filename_filter.h"
#include "driver/stdin_reader.h"
#include "net/query_transaction.h"
#include "params/input_params.h"
#include "params/usage.h"
#include "report/json_writer.h"
#include "time/clock.h"

namespace {

constexpr int k_exit_ok = 0;
constexpr int k_exit_fatal = -1;  // 255 as the shell sees it

arg_list copy_arguments(int argc, char** argv) {
  arg_list args;
  for (int i = 0; i < argc; ++i) args.emplace_back(argv[i] ? argv[i] : "");
  return args;
}

bool lookup_requested(const input_params& config) {
  const bool no_name = config.url.empty() && config.ip.empty() && config.mx.empty() && config.txt.empty() &&
                       config.ns.empty();
  return !no_name || config.use_stdin || config.use_enumdir;
}

void open_document(std::ostream& out, const input_params& config, const std::string& program) {
  // Attribute values are written as they stand, like every report text.
  out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n\n"
      << "<logdata tool=\"" << config.tool_id << "\" cmdline=\"" << program << "\">\n";
}

// Results that cannot be written (disk full, reader gone) must not be lost silently: the run
// stops and says why. The stream is flushed first so a failure shows now, not at exit. errno is
// cleared before each batch of writes, and the sockets are closed before a query's rows are
// written, so a failed write is the last failed call and errno still names its cause.
bool output_failed(std::ostream& out) {
  out.flush();
  if (out) return false;
  print_error("prob writing results: %s\n", std::strerror(errno != 0 ? errno : EIO));
  return true;
}

// The name is encoded as the lookup option encodes it, whatever type -qtype asks for.
bool build(DNS_RES_RECORD& query, const std::string& name, const input_params& config) {
  const auto lookup_type = static_cast<std::uint16_t>(config.query_type);
  return build_query_for(query, name, lookup_type, config.asked_type.value_or(lookup_type));
}

void note(name_outcome& worst, name_outcome outcome) { worst = std::max(worst, outcome); }

int ask_single(std::ostream& out, input_params& config, DNS_RES_RECORD& query, dns_packet_transaction& transaction,
               name_outcome& worst) {
  if (!build(query, config.query_name, config)) {
    print_error("prob building dns packet... aborting\n");
    return k_exit_fatal;
  }
  config.heading_pending = 1;
  errno = 0;
  note(worst, run_query(out, transaction, query, config, {1, config.query_name}));
  return output_failed(out) ? k_exit_fatal : k_exit_ok;
}

// Returns false when the output failed; the rest of the input is then left unread.
bool ask_piped(std::ostream& out, input_params& config, DNS_RES_RECORD& query, dns_packet_transaction& transaction,
               name_outcome& worst) {
  qvportdir::stdin_stream_ex reader(config);
  if (!config.use_stdin || !reader.init_to_stdin()) return true;
  const auto filters = build_filters(config.filters);
  config.heading_pending = 1;
  std::string line;
  for (std::uint64_t number = 1; reader.read(line, true); ++number) {
    if (line.empty() || !filter_accepts(filters, line)) continue;
    config.query_name = line;
    transaction.clear();
    // A line that cannot be encoded is skipped without the delay: quietly in the reports made
    // for reading, with its reason in JSON, where every name gets a result.
    if (!build(query, line, config)) {
      note(worst, name_outcome::no_reply);
      if (!config.json) continue;
      errno = 0;
      write_json_bad_name(out, number, line, name_fault(line));
      if (output_failed(out)) return false;
      continue;
    }
    errno = 0;
    note(worst, run_query(out, transaction, query, config, {number, line}));
    if (output_failed(out)) return false;
    if (config.delay != 0) pause_seconds(static_cast<unsigned>(config.delay));
  }
  return true;
}

}  // namespace

int zib_main(int argc, char** argv) {
  // A reader that goes away (zib ... | head -1) must show as a write error that the run reports,
  // not kill the process silently. The sockets would set this too, but the run header line is
  // written before the first socket exists.
  ::signal(SIGPIPE, SIG_IGN);
  arg_list args = copy_arguments(argc, argv);
  input_params config;
  std::ostringstream header;
  bool help = false;
  const int parsed = config.parse(args, header, help);
  const std::string program = args.empty() ? std::string() : args.front();
  if (help) {
    print_usage(std::cerr, program, config.tool_id);
    return k_exit_ok;
  }
  // JSON Lines have no run header line: every line of the output is one object.
  if (!parsed) {
    if (!config.json) std::cout << header.str() << '\n' << std::flush;
    return k_exit_fatal;
  }

  std::ofstream results;
  if (!config.results_file.empty()) {
    results.open(config.results_file, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!results) {
      print_error("prob opening results file: %s for writing\n", config.results_file.c_str());
      return k_exit_fatal;
    }
  }
  std::ostream& out = config.results_file.empty() ? std::cout : results;
  errno = 0;
  if (!config.json) out << header.str() << '\n';
  if (output_failed(out)) return k_exit_fatal;

  if (!lookup_requested(config)) {
    print_usage(std::cerr, program, config.tool_id);
    return k_exit_fatal;
  }
  if (config.xml) open_document(out, config, program);
  if (output_failed(out)) return k_exit_fatal;

  DNS_RES_RECORD query;
  dns_packet_transaction transaction;
  name_outcome worst = name_outcome::answered;
  if (!config.use_stdin && !config.use_enumdir) {
    if (ask_single(out, config, query, transaction, worst) != k_exit_ok) return k_exit_fatal;
  } else if (!ask_piped(out, config, query, transaction, worst)) {
    return k_exit_fatal;
  }
  errno = 0;
  if (config.xml) out << "</logdata>\n";
  if (output_failed(out)) return k_exit_fatal;
  return config.strict_exit ? static_cast<int>(worst) : k_exit_ok;
}
