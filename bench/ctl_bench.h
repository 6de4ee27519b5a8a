// sdmctl's dump and load of 100,000 values through the database category, against the same
// manager calls from C++ in one process.
#pragma once

// Needs the module and the server registered; program is this benchmark's path (sdmctl.exe is
// beside it).
void RunCtlBenchmarks(const wchar_t* program);
