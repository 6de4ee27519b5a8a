# SQLite: the pinned upstream amalgamation (3.52.0), fetched and checked by scripts/fetch-sqlite.sh
# into WQ_DEPS_DIR when the configure step does not find it, and built once as a static library.
set(WQ_DEPS_DIR "${CMAKE_BINARY_DIR}/deps" CACHE PATH "Folder of the fetched third-party sources")
set(WQ_SQLITE_DIR ${WQ_DEPS_DIR}/sqlite-3520000)
if(NOT EXISTS ${WQ_SQLITE_DIR}/sqlite3.c OR NOT EXISTS ${WQ_SQLITE_DIR}/sqlite3.h)
  execute_process(COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/fetch-sqlite.sh ${WQ_SQLITE_DIR}
                  RESULT_VARIABLE WQ_SQLITE_FETCHED)
  if(NOT WQ_SQLITE_FETCHED EQUAL 0)
    message(FATAL_ERROR "The SQLite amalgamation could not be fetched into ${WQ_SQLITE_DIR}")
  endif()
endif()

add_library(sqlite3 STATIC ${WQ_SQLITE_DIR}/sqlite3.c)
target_include_directories(sqlite3 SYSTEM PUBLIC ${WQ_SQLITE_DIR})
# Thread-safe (serialized), no extension loading, double-quoted strings are identifiers only.
target_compile_definitions(sqlite3 PRIVATE SQLITE_THREADSAFE=1 SQLITE_OMIT_LOAD_EXTENSION SQLITE_DQS=0
                           SQLITE_DEFAULT_FOREIGN_KEYS=1)
# Third-party code: optimised, without debug information and without the project's warnings.
target_compile_options(sqlite3 PRIVATE -w -O2 -g0)
