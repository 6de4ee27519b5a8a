// A cached GetData hit through the manager against a bare map lookup, over 10 to 1,000,000
// values; the heap bytes per cached value against its payload; a mixed workload from 1 to 8
// threads.
#pragma once

void RunCachedHitBenchmarks();
