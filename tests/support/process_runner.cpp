#include "support/process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace {

using clock_type = std::chrono::steady_clock;

struct child_pipes {
  int in[2] = {-1, -1};
  int out[2] = {-1, -1};
  int err[2] = {-1, -1};
};

void close_fd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

[[noreturn]] void exec_child(const std::vector<std::string>& argv, child_pipes& p, const process_options& o) {
  if (o.max_descriptors) {
    const rlimit limit{*o.max_descriptors, *o.max_descriptors};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) ::_exit(126);
  }
  if (o.stdin_text) {
    ::dup2(p.in[0], 0);
  } else {
    ::close(0);
  }
  ::dup2(p.out[1], 1);
  ::dup2(p.err[1], 2);
  for (int fd : {p.in[0], p.in[1], p.out[0], p.out[1], p.err[0], p.err[1]})
    if (fd > 2) ::close(fd);
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  ::execv(args[0], args.data());
  ::_exit(127);
}

// Feeds standard input and drains both outputs until the child closes them or time runs out.
bool pump(child_pipes& p, const std::string& input, process_result& r, clock_type::time_point deadline,
          int keep_lines) {
  std::size_t written = 0;
  if (p.in[1] >= 0 && input.empty()) close_fd(p.in[1]);
  while (p.out[0] >= 0 || p.err[0] >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock_type::now());
    if (left.count() <= 0) return false;
    pollfd fds[3] = {{p.out[0], POLLIN, 0}, {p.err[0], POLLIN, 0}, {p.in[1], POLLOUT, 0}};
    if (::poll(fds, 3, static_cast<int>(left.count())) < 0 && errno != EINTR) return false;
    char buf[65536];
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      const ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
      if (n <= 0) {
        close_fd(i == 0 ? p.out[0] : p.err[0]);
      } else {
        (i == 0 ? r.out : r.err).append(buf, static_cast<std::size_t>(n));
        if (i == 0 && keep_lines > 0 && std::count(r.out.begin(), r.out.end(), '\n') >= keep_lines)
          close_fd(p.out[0]);
      }
    }
    if (fds[2].fd >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
      const ssize_t n = ::write(p.in[1], input.data() + written, input.size() - written);
      if (n > 0) written += static_cast<std::size_t>(n);
      if (n < 0 || written == input.size()) close_fd(p.in[1]);
    }
  }
  return true;
}

}  // namespace

process_result run_process(const std::vector<std::string>& argv, std::optional<std::string> stdin_text,
                           std::chrono::milliseconds limit) {
  return run_process(argv, process_options{std::move(stdin_text), limit, std::nullopt, -1});
}

process_result run_process(const std::vector<std::string>& argv, const process_options& options) {
  process_result r;
  const auto& stdin_text = options.stdin_text;
  child_pipes p;
  ::signal(SIGPIPE, SIG_IGN);
  if (::pipe(p.in) != 0 || ::pipe(p.out) != 0 || ::pipe(p.err) != 0) return r;
  for (int fd : {p.in[1], p.out[0], p.err[0]}) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  if (options.stdout_lines == 0) close_fd(p.out[0]);
  const pid_t pid = ::fork();
  if (pid == 0) exec_child(argv, p, options);
  close_fd(p.in[0]);
  close_fd(p.out[1]);
  close_fd(p.err[1]);
  if (!stdin_text) close_fd(p.in[1]);
  const bool finished = pid > 0 && pump(p, stdin_text.value_or(""), r, clock_type::now() + options.limit,
                                           options.stdout_lines);
  for (int* fd : {&p.in[1], &p.out[0], &p.err[0]}) close_fd(*fd);
  if (pid <= 0) return r;
  if (!finished) {
    ::kill(pid, SIGKILL);
    r.timed_out = true;
  }
  int wstatus = 0;
  rusage usage{};
  ::wait4(pid, &wstatus, 0, &usage);
  r.max_rss_kb = usage.ru_maxrss;
  if (!r.timed_out && WIFEXITED(wstatus)) r.status = WEXITSTATUS(wstatus);
  return r;
}

process_result run_zib(const std::vector<std::string>& args, std::optional<std::string> stdin_text,
                       std::chrono::milliseconds limit) {
  std::vector<std::string> argv{ZIB_BINARY};
  argv.insert(argv.end(), args.begin(), args.end());
  return run_process(argv, std::move(stdin_text), limit);
}

process_result run_zib(const std::vector<std::string>& args, const process_options& options) {
  std::vector<std::string> argv{ZIB_BINARY};
  argv.insert(argv.end(), args.begin(), args.end());
  return run_process(argv, options);
}
