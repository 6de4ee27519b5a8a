// The storage root on its two engines side by side in one run: SQLite (a file) and PostgreSQL
// (through ODBC, the database that WQ_TEST_PG or WQ_BENCH_PG names, in a schema of its own).
#pragma once

// Needs the module and the server registered, and a PostgreSQL database (else only SQLite runs).
void RunEngineBenchmarks();
