#include "support/process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

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
// The child's high-water resident set and its open descriptors now, where /proc exists.
// Until the exec the child is a copy of this process, whose figures mean nothing here.
void sample(pid_t pid, process_result& r) {
  const std::string proc = "/proc/" + std::to_string(pid);
  std::error_code error;
  if (std::filesystem::read_symlink(proc + "/exe", error) == std::filesystem::read_symlink("/proc/self/exe", error))
    return;
  std::ifstream status(proc + "/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) r.peak_rss_kb = std::max(r.peak_rss_kb, std::atol(line.c_str() + 6));
  std::size_t count = 0;
  for (std::filesystem::directory_iterator it(proc + "/fd", error), end; !error && it != end; it.increment(error))
    ++count;
  r.peak_descriptors = std::max(r.peak_descriptors, count);
}

bool pump(pid_t pid, child_pipes& p, const std::string& input, process_result& r, clock_type::time_point deadline,
          int keep_lines) {
  std::size_t written = 0;
  if (p.in[1] >= 0 && input.empty()) close_fd(p.in[1]);
  while (p.out[0] >= 0 || p.err[0] >= 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock_type::now());
    if (left.count() <= 0) return false;
    pollfd fds[3] = {{p.out[0], POLLIN, 0}, {p.err[0], POLLIN, 0}, {p.in[1], POLLOUT, 0}};
    if (::poll(fds, 3, static_cast<int>(left.count())) < 0 && errno != EINTR) return false;
    sample(pid, r);
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
      const bool full = n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
      if ((n < 0 && !full) || written == input.size()) close_fd(p.in[1]);
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
  // A blocking write of a large input would wait for the child to read while the child waits
  // for us to drain its output: feed standard input only as far as the pipe takes it.
  ::fcntl(p.in[1], F_SETFL, O_NONBLOCK);
  if (options.stdout_lines == 0) close_fd(p.out[0]);
  const pid_t pid = ::fork();
  if (pid == 0) exec_child(argv, p, options);
  close_fd(p.in[0]);
  close_fd(p.out[1]);
  close_fd(p.err[1]);
  if (!stdin_text) close_fd(p.in[1]);
  const bool finished = pid > 0 && pump(pid, p, stdin_text.value_or(""), r, clock_type::now() + options.limit,
                                           options.stdout_lines);
  for (int* fd : {&p.in[1], &p.out[0], &p.err[0]}) close_fd(*fd);
  if (pid <= 0) return r;
  if (!finished) {
    ::kill(pid, SIGKILL);
    r.timed_out = true;
  }
  int wstatus = 0;
  ::waitpid(pid, &wstatus, 0);
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
