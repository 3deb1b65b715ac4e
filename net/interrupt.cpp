#include "net/interrupt.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

namespace {

volatile sig_atomic_t g_signal = 0;
int g_wake[2] = {-1, -1};

void on_signal(int number) {
  const int saved = errno;  // the interrupted code may be about to read errno
  if (g_signal == 0) g_signal = number;
  if (g_wake[1] != -1) {
    const char byte = 0;
    (void)!::write(g_wake[1], &byte, 1);  // full pipe: a wake-up is already pending
  }
  errno = saved;
}

void make_wake_pipe() {
  if (::pipe(g_wake) != 0) {
    g_wake[0] = g_wake[1] = -1;
    return;
  }
  for (const int end : g_wake) {
    ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
  }
}

}  // namespace

void catch_interrupts() {
  if (g_wake[0] == -1) make_wake_pipe();
  struct sigaction action {};
  action.sa_handler = on_signal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
}

int interrupt_signal() { return g_signal; }

int interrupt_descriptor() { return g_wake[0]; }
