// Uncached reads and writes over the registry and the environment against the platform calls
// that the same work needs.
#pragma once

void RunPlatformBenchmarks();
