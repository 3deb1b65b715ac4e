// Fatal messages of the driver: one short lower-case line on standard error.
#pragma once

// Erases the terminal line first (any progress text on it), then writes the printf-formatted
// message. A message longer than 4096 characters is not written.
void print_error(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The erasing alone, as the progress line uses it before each redraw and at the end.
void erase_terminal_line();
