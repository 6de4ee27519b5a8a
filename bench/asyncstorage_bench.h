// Benchmarks of the asynchronous writes of the database storage (printed to stdout).
#pragma once

void RunAsyncStorageBenchmarks();
