#include "driver/run.h"

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

int ask_single(std::ostream& out, input_params& config, DNS_RES_RECORD& query, dns_packet_transaction& transaction) {
  if (!build_query(query, config.query_name, static_cast<std::uint16_t>(config.query_type))) {
    print_error("prob building dns packet... aborting\n");
    return k_exit_fatal;
  }
  config.heading_pending = 1;
  run_query(out, transaction, query, config);
  return k_exit_ok;
}

void ask_piped(std::ostream& out, input_params& config, DNS_RES_RECORD& query, dns_packet_transaction& transaction) {
  qvportdir::stdin_stream_ex reader(config);
  if (!config.use_stdin || !reader.init_to_stdin()) return;
  const auto filters = build_filters(config.filters);
  config.heading_pending = 1;
  std::string line;
  while (reader.read(line, true)) {
    if (line.empty() || !filter_accepts(filters, line)) continue;
    config.query_name = line;
    transaction.clear();
    // A line that cannot be encoded is skipped quietly, without the delay.
    if (!build_query(query, line, static_cast<std::uint16_t>(config.query_type))) continue;
    run_query(out, transaction, query, config);
    if (config.delay != 0) pause_seconds(static_cast<unsigned>(config.delay));
  }
}

}  // namespace

int zib_main(int argc, char** argv) {
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
  if (!parsed) {
    std::cout << header.str() << '\n' << std::flush;
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
  out << header.str() << '\n';

  if (!lookup_requested(config)) {
    out.flush();
    print_usage(std::cerr, program, config.tool_id);
    return k_exit_fatal;
  }
  if (config.xml) open_document(out, config, program);

  DNS_RES_RECORD query;
  dns_packet_transaction transaction;
  if (!config.use_stdin && !config.use_enumdir) {
    if (ask_single(out, config, query, transaction) != k_exit_ok) return k_exit_fatal;
  } else {
    ask_piped(out, config, query, transaction);
  }
  if (config.xml) out << "</logdata>\n";
  out.flush();
  return k_exit_ok;
}
