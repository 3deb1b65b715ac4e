#include "driver/error_printer.h"

#include <cstdarg>
#include <cstdio>

namespace {

// ESC "[2K" clears the line, then a carriage return, 27 blanks and another carriage return
// wipe terminals that do not know the escape.
constexpr char k_erase_line[] = "\x1b[2K\r                           \r";
constexpr int k_max_message = 4096;

}  // namespace

void erase_terminal_line() { std::fputs(k_erase_line, stderr); }

void print_error(const char* format, ...) {
  erase_terminal_line();
  char message[k_max_message + 1];
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(message, sizeof message, format, args);
  va_end(args);
  if (length < 0 || length > k_max_message) return;
  std::fputs(message, stderr);
  std::fflush(stderr);
}
