// The stacks of every other thread of the process, for a watchdog that found a thread stuck: each
// thread is suspended, its frames are unwound from the unwind tables of the modules, printed as
// module+offset (and the function's name where the debug help library finds one), and resumed.
#pragma once

#include <cstdio>

// Writes the stacks to out; returns the number of threads written.
int SoakDumpThreadStacks(std::FILE* out);
