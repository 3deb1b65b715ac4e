// Runs a program as a child process with the given standard input, and captures its standard
// output, standard error and exit status. Bounded in time: a child still running at the
// deadline is killed (by its PID) and reported as timed out.
#pragma once

#include <sys/resource.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

struct process_result {
  std::string out;
  std::string err;
  int status = -1;        // exit status, or -1 when killed or not started
  bool timed_out = false;
  // Sampled from /proc/<pid> while the child runs (Linux; 0 elsewhere). VmHWM, not wait4's
  // ru_maxrss: that one also counts the forked copy of this test process before the exec.
  long peak_rss_kb = 0;
  std::size_t peak_descriptors = 0;
};

struct process_options {
  std::optional<std::string> stdin_text = "";
  std::chrono::milliseconds limit = std::chrono::seconds(60);
  std::optional<rlim_t> max_descriptors;  // RLIMIT_NOFILE in the child: a leak then shows
  // The reader of standard output goes away after this many lines, as in `| head -1`; 0 closes
  // it before the child starts, -1 reads everything.
  int stdout_lines = -1;
};

process_result run_process(const std::vector<std::string>& argv, const process_options& options);

// `stdin_text` nullopt gives the child no standard input at all (its descriptor 0 closed).
process_result run_process(const std::vector<std::string>& argv, std::optional<std::string> stdin_text = "",
                           std::chrono::milliseconds limit = std::chrono::seconds(60));

// The zib binary under test, with `args` after the program path.
process_result run_zib(const std::vector<std::string>& args, std::optional<std::string> stdin_text = "",
                       std::chrono::milliseconds limit = std::chrono::seconds(60));
process_result run_zib(const std::vector<std::string>& args, const process_options& options);
