// The SQL storage over SQLite against the same statements made directly with the SQLite C API.
#pragma once

void RunSqlStorageBenchmarks();
