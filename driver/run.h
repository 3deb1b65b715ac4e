// The entry point's order of work: parse, open the output, write the frame, ask the questions.
#pragma once

// Returns the exit status: 0 for a completed run (with -strict_exit the worst outcome of its
// names, 0 to 3), -1 (255 in the shell) for a fatal condition.
int zib_main(int argc, char** argv);
