// The entry point's order of work: parse, open the output, write the frame, ask the questions.
#pragma once

// Returns the exit status: 0 for a completed run, -1 (255 in the shell) for a fatal condition.
int zib_main(int argc, char** argv);
