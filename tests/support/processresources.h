// What a process holds, measured the ways that work under Wine 8 (where GetOwnHandleCount and
// the PrivateUsage counter read 0): its handles, counted in the system's handle table, and the
// bytes of the busy blocks of its heaps, walked.
#pragma once

#include <cstddef>

// The number of handles the current process holds; 0 when the system cannot say.
size_t OwnHandleCount();
// The bytes of every busy block of every heap of the process.
size_t OwnHeapBytes();
