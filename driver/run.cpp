#include "driver/run.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>

#include "dns/dns_record.h"
#include "dns/query_builder.h"
#include "driver/error_printer.h"
#include "driver/bulk_run.h"
#include "driver/iterative_run.h"
#include "driver/line_lookups.h"
#include "driver/filename_filter.h"
#include "driver/output_file.h"
#include "driver/run_progress.h"
#include "net/interrupt.h"
#include "driver/stdin_reader.h"
#include "driver/query_run.h"
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
                       config.ns.empty() && config.ip6.empty();
  return !no_name || config.use_stdin || config.use_enumdir;
}

void open_document(std::ostream& out, const input_params& config, const std::string& program) {
  // Attribute values are written as they stand, like every report text.
  out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n\n"
      << "<logdata tool=\"" << config.tool_id << "\" cmdline=\"" << program << "\">\n";
}

// What both modes share beyond the configuration: pacing, counting, the status line.
struct run_state {
  send_pacer pacer;
  run_summary summary;
  run_progress progress;
  run_extras extras;

  bool continuing;  // the report adds to one already begun: no second heading

  run_state(const input_params& config, bool show_progress, bool continues_report)
      : pacer(config.qps), progress(show_progress, summary),
        extras{pacer.limited() ? &pacer : nullptr, &summary}, continuing(continues_report) {}
};

// Many names in flight, or a pool of resolvers, which the bulk run drives (one name at a time
// without -inflight).
bool bulk_mode(const input_params& config) {
  return config.inflight > 1 || !config.resolvers.empty() || config.iterative != 0;
}

// The run of many names: from the root down with -iterative, else through the bulk run.
bulk_result run_many(std::ostream& out, input_params& config, const query_source& next, run_state& run,
                     name_outcome& worst, std::uint64_t lines_before = 0) {
  if (config.iterative != 0) return run_iterative(out, config, next, run.extras, run.progress, worst, lines_before);
  return run_bulk(out, config, next, run.extras, run.progress, worst, lines_before);
}

// The name is encoded as the lookup option encodes it, whatever type -qtype asks for.
bool build(DNS_RES_RECORD& query, const std::string& name, const input_params& config) {
  const auto lookup_type = static_cast<std::uint16_t>(config.query_type);
  return build_query_for(query, name, lookup_type, config.asked_type.value_or(lookup_type),
                         query_settings_of(config));
}

void note(name_outcome& worst, name_outcome outcome) { worst = std::max(worst, outcome); }

// Where a piped run stands when it ends: false when the output failed (the rest of the input
// is then left unread), and the last input line up to which every name is written.
struct piped_result {
  bool written = true;
  std::uint64_t resume_line = 0;
};
piped_result ask_each(std::ostream& out, input_params& config, dns_packet_transaction& transaction, run_state& run,
                      name_outcome& worst, const query_source& next_name, std::uint64_t number);

int ask_single(std::ostream& out, input_params& config, DNS_RES_RECORD& query, dns_packet_transaction& transaction,
               run_state& run, name_outcome& worst) {
  line_lookups lookups(config);
  if (lookups.expands()) {
    // -qtypes or a -cidr range: the name's lookups, as those of a piped line.
    config.heading_pending = run.continuing ? 0 : 1;
    const std::string name = config.query_name;
    lookups.begin(name, 1, 0);
    const query_source next = [&](name_entry& entry) { return lookups.next(entry); };
    if (bulk_mode(config)) return run_many(out, config, next, run, worst).written ? k_exit_ok : k_exit_fatal;
    return ask_each(out, config, transaction, run, worst, next, 0).written ? k_exit_ok : k_exit_fatal;
  }
  if (!build(query, config.query_name, config)) {
    print_error("prob building dns packet... aborting\n");
    return k_exit_fatal;
  }
  config.heading_pending = run.continuing ? 0 : 1;
  if (bulk_mode(config)) {
    bool given = false;
    const query_source once = [&](name_entry& next) {
      if (std::exchange(given, true)) return false;
      next.query = query;
      next.asked = config.query_name;
      next.built = true;
      return true;
    };
    return run_many(out, config, once, run, worst).written ? k_exit_ok : k_exit_fatal;
  }
  errno = 0;
  note(worst, run_query(out, transaction, query, config, run.extras, {1, config.query_name, {}}).outcome);
  return output_failed(out) ? k_exit_fatal : k_exit_ok;
}


// When standard input is a file, the status line can tell how much of it is done: the bytes
// from where the input stands before anything is read (another process may have read its head)
// to its end. 0 when it is no file.
std::uint64_t input_size() {
  struct stat input {};
  if (::fstat(STDIN_FILENO, &input) != 0 || !S_ISREG(input.st_mode)) return 0;
  const off_t at = ::lseek(STDIN_FILENO, 0, SEEK_CUR);
  const std::uint64_t before = at > 0 ? static_cast<std::uint64_t>(at) : 0;
  const std::uint64_t size = static_cast<std::uint64_t>(input.st_size);
  return size > before ? size - before : 0;
}

// A stop signal ends the reading: a line cut short by it is not asked.
piped_result ask_piped(std::ostream& out, input_params& config, dns_packet_transaction& transaction, run_state& run,
                       name_outcome& worst) {
  qvportdir::stdin_stream_ex reader(config);
  if (!config.use_stdin || !reader.init_to_stdin()) return {};
  const auto filters = build_filters(config.filters);
  config.heading_pending = run.continuing ? 0 : 1;
  std::string line;
  // Measured before the first read, which buffers ahead of the lines it hands out.
  const std::uint64_t size = input_size();
  // -skip_lines: lines an earlier run has written are passed over, and still counted, as done.
  std::uint64_t number = 0;
  while (number < config.skip_lines && reader.read(line, true)) ++number;
  if (size != 0) run.progress.set_input_size(size, reader.bytes_read());
  // The next line worth asking, with its number, built into `next.query` when it can be. A
  // line that cannot be encoded is skipped without the delay: quietly in the reports made for
  // reading, with its reason in JSON, where every name gets a result.
  line_lookups lookups(config);
  const query_source next_name = [&](name_entry& next) {
    if (lookups.next(next)) return true;
    while (reader.read(line, true) && interrupt_signal() == 0) {
      ++number;
      if (config.clean_input && !clean_input_line(line, number == 1)) continue;
      if (line.empty() || !filter_accepts(filters, line)) continue;
      config.query_name = line;
      lookups.begin(line, number, reader.bytes_read());
      return lookups.next(next);
    }
    return false;
  };
  if (bulk_mode(config)) {
    const bulk_result result = run_many(out, config, next_name, run, worst, number);
    return {result.written, result.resume_line};
  }
  return ask_each(out, config, transaction, run, worst, next_name, number);
}

// One lookup after another. A name that cannot be built is skipped without the delay.
piped_result ask_each(std::ostream& out, input_params& config, dns_packet_transaction& transaction, run_state& run,
                      name_outcome& worst, const query_source& next_name, std::uint64_t number) {
  piped_result result{true, number};
  name_entry name;
  for (;;) {
    transaction.clear();
    if (!next_name(name)) return result;
    errno = 0;
    const std::uint64_t done_line = name.line_end ? name.line : name.line - 1;
    if (!name.built) {
      note(worst, name_outcome::no_reply);
      write_bad_name(out, config, name);
      if ((config.json || config.json_names || config.why_columns) && output_failed(out))
        return {false, result.resume_line};
      result.resume_line = done_line;
      continue;
    }
    const query_result asked = run_query(out, transaction, name.query, config, run.extras, {name.line, name.asked, {}});
    note(worst, asked.outcome);
    if (output_failed(out)) return {false, result.resume_line};
    // A name cut short after an attempt is written counts as done: going on from the next line
    // asks no name twice.
    if (asked.reported || config.retry < 0) result.resume_line = done_line;
    if (name.line_end) run.progress.input_done(name.input_end);
    run.progress.tick();
    if (interrupt_signal() != 0) return result;
    if (config.delay != 0) pause_seconds(static_cast<unsigned>(config.delay));
  }
}

// True when both descriptors are the same terminal.
bool same_terminal(int a, int b) {
  struct stat first {}, second {};
  return ::isatty(a) && ::isatty(b) && ::fstat(a, &first) == 0 && ::fstat(b, &second) == 0 &&
         first.st_rdev == second.st_rdev;
}

// The status line: for piped names when standard error is a terminal that the report does not
// go to (rows written under the line would leave it glued to their front), or when asked; never
// with -quiet.
bool show_progress(const input_params& config, int report) {
  if (config.quiet) return false;
  if (config.progress) return true;
  return config.use_stdin && ::isatty(STDERR_FILENO) && !same_terminal(STDERR_FILENO, report);
}

// 128 plus the signal, as a shell reports a process that the signal ended.
int exit_status(int normal) { return interrupt_signal() != 0 ? 128 + interrupt_signal() : normal; }

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
  if (config.show_version) {
    std::cout << k_tool_name << ' ' << k_tool_version << '\n' << std::flush;
    return std::cout ? k_exit_ok : k_exit_fatal;
  }
  // JSON Lines have no run header line: every line of the output is one object; nor has RFC 4180
  // CSV, whose first line is the heading.
  if (!parsed) {
    if (config.writes_run_header()) std::cout << header.str() << '\n' << std::flush;
    return k_exit_fatal;
  }

  output_file results;
  if (!config.results_file.empty() && !results.open(config.results_file, config.append != 0)) {
    print_error("prob opening results file: %s for writing\n", config.results_file.c_str());
    return k_exit_fatal;
  }
  // -stats_json: opened now, so that a file that cannot be written stops the run before it asks.
  std::ofstream stats_file;
  if (!config.stats_json.empty()) {
    stats_file.open(config.stats_json, std::ios::trunc);
    if (!stats_file) {
      print_error("prob opening stats file: %s for writing\n", config.stats_json.c_str());
      return k_exit_fatal;
    }
  }
  // -append to a report already begun (a resumed run): one header and one heading in the file.
  const bool continuing = config.append != 0 && results.holds_data();
  std::ostream out(&results);
  catch_interrupts();  // after the results file, which must not lose a descriptor to the pipe
  errno = 0;
  if (config.writes_run_header() && !continuing) out << header.str() << '\n';
  if (output_failed(out)) return k_exit_fatal;

  if (!lookup_requested(config)) {
    print_usage(std::cerr, program, config.tool_id);
    return k_exit_fatal;
  }
  if (config.xml) open_document(out, config, program);
  if (output_failed(out)) return k_exit_fatal;

  DNS_RES_RECORD query;
  dns_packet_transaction transaction;
  run_state run(config, show_progress(config, results.descriptor()), continuing);
  name_outcome worst = name_outcome::answered;
  const bool single = !config.use_stdin && !config.use_enumdir;
  piped_result piped;
  const bool asked = single ? ask_single(out, config, query, transaction, run, worst) == k_exit_ok
                            : (piped = ask_piped(out, config, transaction, run, worst)).written;
  run.progress.finish();
  // With a results file the same command would truncate it: the hint adds -append.
  if (!single && interrupt_signal() != 0)
    print_error(config.results_file.empty() ? "stopped: to resume, add -skip_lines %llu\n"
                                            : "stopped: to resume, add -skip_lines %llu -append\n",
                static_cast<unsigned long long>(piped.resume_line));
  // A failed build in single-name mode leaves the document open on purpose, like a failed output.
  if (!asked) return k_exit_fatal;
  errno = 0;
  if (config.xml) out << "</logdata>\n";
  out.flush();
  if (!results.write_all()) out.setstate(std::ios::badbit);
  if (output_failed(out)) return k_exit_fatal;
  if (config.stats) {
    std::ostringstream summary;  // one write, so the lines cannot interleave with another process's
    run.summary.write(summary, run.progress.elapsed_seconds());
    std::fputs(summary.str().c_str(), stderr);
  }
  if (stats_file.is_open()) {
    run.summary.write_json(stats_file, run.progress.elapsed_seconds());
    stats_file.close();
    if (!stats_file) {
      print_error("prob writing stats file: %s\n", config.stats_json.c_str());
      return k_exit_fatal;
    }
  }
  return exit_status(config.strict_exit ? static_cast<int>(worst) : k_exit_ok);
}
