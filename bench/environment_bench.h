// Benchmark of the environment storage's list writes against the platform's own cost (printed
// to stdout).
#pragma once

void RunEnvironmentBenchmarks();
