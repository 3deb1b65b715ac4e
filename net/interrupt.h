// SIGINT and SIGTERM ask a run to stop. The handler only records the signal and wakes the
// wait in progress; the run itself decides where to stop, so a row is never cut in half.
#pragma once

// Installs the handlers, without SA_RESTART: a blocking read of standard input then returns
// and the run stops reading. Also makes a pipe that every event_loop wait watches, so a signal
// that lands just before a wait begins still ends it; without a descriptor to spare for the
// pipe, the wait ends only when the signal interrupts it.
void catch_interrupts();

// The signal that asked to stop, or 0.
int interrupt_signal();

// The read end of the wake pipe, or -1.
int interrupt_descriptor();
