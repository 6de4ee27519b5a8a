# Tests of the database storage over a storage root.

# Test double: a recording storage root.
add_library(wq_storagedbsupport STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/recordingroot.cpp)
target_include_directories(wq_storagedbsupport PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_storagedbsupport PUBLIC wq_testsupport wq_storagetestsupport sdm_storage sdm_io)

wq_add_test(test_storage_db
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_rootkey.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_forwarding.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_results.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_errors.cpp)
target_link_libraries(test_storage_db PRIVATE wq_storagedbsupport)

# Asynchronous write mode: the worker thread of the delegator.
wq_add_test(test_storage_db_async ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_async.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_lostconnection.cpp)
target_link_libraries(test_storage_db_async PRIVATE wq_storagedbsupport)

# Who frees what: the value array handed over by the cached IO layer; leak checks.
wq_add_test(test_storage_db_ownership ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_ownership.cpp)
target_link_libraries(test_storage_db_ownership PRIVATE wq_storagedbsupport)

# The storage of the registered module over a root in another apartment (proxies through the
# module's proxy/stub).
wq_add_module_test(test_storage_db_apartments FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_storagedb_apartments.cpp)
target_link_libraries(test_storage_db_apartments PRIVATE wq_storagedbsupport)

# The same ownership cases again, each in a process of its own, under Wine's heap checks: a
# double free or a use of a freed block that the leak counts cannot see (Wine tolerates both)
# fails the case. (Run all in one process, the leak counts of the asynchronous cases now and then
# saw blocks that another thread of the process allocated meanwhile.)
gtest_discover_tests(test_storage_db_ownership
  TEST_PREFIX "HeapChecked."
  DISCOVERY_MODE PRE_TEST
  DISCOVERY_TIMEOUT 300
  PROPERTIES TIMEOUT 120 ENVIRONMENT "WINEDEBUG=warn+heap" FAIL_REGULAR_EXPRESSION "warn:heap")

# The SQL storage of the storage-root server, over SQLite files and PostgreSQL schemas of the test.
add_library(wq_sqltestsupport STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/sqltesthelpers.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/support/pgtesthelpers.cpp)
target_include_directories(wq_sqltestsupport PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_sqltestsupport PUBLIC wq_storagetestsupport sdm_sqlstorage sqlite3 gtest odbc32)

wq_add_test(test_storage_sql
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagesql.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagesql_schema.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagesql_faults.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagesql_objects.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagesql_postgres.cpp)
target_link_libraries(test_storage_sql PRIVATE wq_sqltestsupport ws2_32)

# The storage root's class in process: per-user keys, its databases, the configured default.
add_library(wq_roottestsupport STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/roottesthelpers.cpp)
target_include_directories(wq_roottestsupport PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_roottestsupport PUBLIC wq_sqltestsupport wq_storagedoubles sdm_root)

wq_add_test(test_storage_root
  ${CMAKE_CURRENT_SOURCE_DIR}/test_root_userkeys.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_root_users.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_root_database.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_root_default.cpp)
target_link_libraries(test_storage_root PRIVATE wq_roottestsupport wq_testsupport)

# The storage-root server registered in the prefix (after the module, whose proxy/stub marshals
# IWQ_SessionDataIOEx to it), and the tests against it.
file(TO_NATIVE_PATH "${CMAKE_BINARY_DIR}/bin/WQSessionDataRoot64.exe" WQ_ROOT_EXE_UNIX)
string(REPLACE "/" "\\" WQ_ROOT_EXE_WINPATH "Z:${WQ_ROOT_EXE_UNIX}")
add_test(NAME register_root COMMAND ${CMAKE_BINARY_DIR}/wine-run.sh ${WQ_ROOT_EXE_WINPATH} /RegServer)
set_tests_properties(register_root PROPERTIES FIXTURES_SETUP wq_root_registered FIXTURES_REQUIRED wq_registered
                     TIMEOUT 120)

add_library(wq_rootservertest STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/rootservertest.cpp)
target_include_directories(wq_rootservertest PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_rootservertest PUBLIC wq_moduletest wq_sqltestsupport wq_storagedoubles wq_root_interfaces)

# wq_add_root_test(<name> <serial: TRUE|FALSE> <sources...>). The automation library's string
# cache is off (OANOCACHE=1): leak checks count every BSTR, and a freed one is never reused.
function(wq_add_root_test name serial)
  add_executable(${name} ${ARGN} ${CMAKE_CURRENT_SOURCE_DIR}/test_main.cpp)
  target_link_libraries(${name} PRIVATE wq_rootservertest gtest advapi32)
  add_dependencies(${name} WQSessionDataMng64 WQSessionDataRoot64 WQSessionDataRoot64Dll)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    TEST_FILTER "-*.ChildProcess*"
    DISCOVERY_TIMEOUT 300
    PROPERTIES TIMEOUT 180 FIXTURES_REQUIRED wq_root_registered RUN_SERIAL ${serial}
               ENVIRONMENT "WINEDEBUG=-all;OANOCACHE=1" LABELS module)
endfunction()

wq_add_root_test(test_root_registration TRUE ${CMAKE_CURRENT_SOURCE_DIR}/test_root_registration.cpp)
wq_add_root_test(test_root_server FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_root_server.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_root_endtoend.cpp ${CMAKE_CURRENT_SOURCE_DIR}/test_root_badinput.cpp)
target_link_libraries(test_root_server PRIVATE wq_roottestsupport)
wq_add_root_test(test_root_leaks FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_root_leaks.cpp)

# The kill test, not run with the others: it runs in a Wine server session of its own.
add_executable(test_root_kill ${CMAKE_CURRENT_SOURCE_DIR}/test_root_kill.cpp ${CMAKE_CURRENT_SOURCE_DIR}/test_main.cpp)
target_link_libraries(test_root_kill PRIVATE wq_rootservertest gtest advapi32)
add_dependencies(test_root_kill WQSessionDataMng64 WQSessionDataRoot64 WQSessionDataRoot64Dll)

# Checks from outside Wine, with the host's sqlite3: the file the end-to-end client wrote, and the
# kill test (serial: it ends the Wine server session, twice).
add_test(NAME RootHost.TheFileWrittenThroughTheServerIsIntactForSqlite3
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/host/root_file_check.sh ${CMAKE_BINARY_DIR})
set_tests_properties(RootHost.TheFileWrittenThroughTheServerIsIntactForSqlite3 PROPERTIES
                     FIXTURES_REQUIRED wq_root_registered TIMEOUT 180 LABELS module)
add_test(NAME RootKill.AKilledServerFailsFastAndANewServerServesWhatWasAcknowledged
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/host/root_kill.sh ${CMAKE_BINARY_DIR})
set_tests_properties(RootKill.AKilledServerFailsFastAndANewServerServesWhatWasAcknowledged PROPERTIES
                     FIXTURES_REQUIRED wq_root_registered RUN_SERIAL TRUE TIMEOUT 300 LABELS module)

# Two machines on one PostgreSQL database (each a Wine prefix and server session of its own), run
# from outside Wine by tests/host/root_machines.sh.
add_executable(test_root_machines ${CMAKE_CURRENT_SOURCE_DIR}/test_root_machines.cpp ${CMAKE_CURRENT_SOURCE_DIR}/test_main.cpp)
target_link_libraries(test_root_machines PRIVATE wq_rootservertest gtest advapi32 ws2_32)
add_dependencies(test_root_machines WQSessionDataMng64 WQSessionDataRoot64)
add_test(NAME RootMachines.TwoServersOnOneDatabaseNeverServeAStaleValue
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/host/root_machines.sh ${CMAKE_BINARY_DIR})
set_tests_properties(RootMachines.TwoServersOnOneDatabaseNeverServeAStaleValue PROPERTIES TIMEOUT 600 LABELS module)

# The database restarted under a stream of asynchronous writes, with a cluster of its own, run
# from outside Wine by tests/host/pg_restart.sh.
add_executable(test_root_restart ${CMAKE_CURRENT_SOURCE_DIR}/test_root_restart.cpp ${CMAKE_CURRENT_SOURCE_DIR}/test_main.cpp)
target_link_libraries(test_root_restart PRIVATE wq_rootservertest gtest advapi32)
add_dependencies(test_root_restart WQSessionDataMng64 WQSessionDataRoot64)
add_test(NAME RootRestart.AStreamOfAsynchronousWritesSurvivesADatabaseRestart
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/host/pg_restart.sh ${CMAKE_BINARY_DIR})
set_tests_properties(RootRestart.AStreamOfAsynchronousWritesSurvivesADatabaseRestart PROPERTIES
                     FIXTURES_REQUIRED wq_root_registered TIMEOUT 300 LABELS module)

# sdmctl, run as a child process as a user runs it (against the registered module and server).
add_library(wq_sdmctltest STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/sdmctltest.cpp)
target_include_directories(wq_sdmctltest PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_sdmctltest PUBLIC wq_moduletest sdm_ctl gtest)
wq_add_root_test(test_sdmctl FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_sdmctl.cpp)
target_link_libraries(test_sdmctl PRIVATE wq_sdmctltest wq_hostheaders)
add_dependencies(test_sdmctl sdmctl)
add_test(NAME SdmctlHost.TheShellAtATerminalKeepsItsHistory
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/host/sdmctl_shell.sh ${CMAKE_BINARY_DIR})
set_tests_properties(SdmctlHost.TheShellAtATerminalKeepsItsHistory PROPERTIES
                     FIXTURES_REQUIRED wq_root_registered TIMEOUT 120 LABELS module)

# Leak and handle checks per storage kind, through the registered classes (as a client binds them).
wq_add_root_test(test_leaks_storagekinds FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_leaks_storagekinds.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/support/processresources.cpp)
target_link_libraries(test_leaks_storagekinds PRIVATE sdm_ctl)

# The bad-input matrix of the manager, through the registered classes; also under Wine's heap
# checks, where any heap warning fails it.
wq_add_root_test(test_badinput_matrix FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_badinput_matrix.cpp)
target_link_libraries(test_badinput_matrix PRIVATE sdm_ctl)
gtest_discover_tests(test_badinput_matrix
  TEST_PREFIX "HeapChecked."
  DISCOVERY_MODE PRE_TEST
  DISCOVERY_TIMEOUT 300
  PROPERTIES TIMEOUT 300 FIXTURES_REQUIRED wq_root_registered LABELS module
             ENVIRONMENT "WINEDEBUG=warn+heap;OANOCACHE=1" FAIL_REGULAR_EXPRESSION "warn:heap")

# The bad-input matrix of the IO layers, the storages and the root (also under the heap checks).
wq_add_root_test(test_badinput_classes FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_badinput_classes.cpp)
target_link_libraries(test_badinput_classes PRIVATE sdm_ctl)
gtest_discover_tests(test_badinput_classes
  TEST_PREFIX "HeapChecked."
  DISCOVERY_MODE PRE_TEST
  DISCOVERY_TIMEOUT 300
  PROPERTIES TIMEOUT 300 FIXTURES_REQUIRED wq_root_registered LABELS module
             ENVIRONMENT "WINEDEBUG=warn+heap;OANOCACHE=1" FAIL_REGULAR_EXPRESSION "warn:heap")

# Answers the module gives on purpose that surprise a client, through the registered classes.
wq_add_root_test(test_surprising_answers FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_surprising_answers.cpp)
target_link_libraries(test_surprising_answers PRIVATE sdm_ctl)

# The soak (its short mode here; --seconds for a long run), through the registered classes.
add_executable(sdm_soak
  ${CMAKE_CURRENT_SOURCE_DIR}/soak/sdm_soak.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/soak/soakworker.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/soak/soakworld.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/soak/soakrooted.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/soak/soakfaultroot.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/soak/soakroothost.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/soak/soakstacks.cpp)
target_include_directories(sdm_soak PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/soak)
target_link_libraries(sdm_soak PRIVATE sdm_ctl sdm_threading wq_basetestsupport dbghelp user32)
add_dependencies(sdm_soak WQSessionDataMng64 WQSessionDataRoot64)
add_test(NAME Soak.ShortRun COMMAND ${CMAKE_BINARY_DIR}/wine-run.sh ${CMAKE_BINARY_DIR}/bin/sdm_soak.exe --seconds 40)
set_tests_properties(Soak.ShortRun PROPERTIES FIXTURES_REQUIRED wq_root_registered TIMEOUT 300 LABELS module)
# The watchdog's own test: one thread stops for good; the run must end with exit code 2 and the
# stack of every thread.
add_test(NAME Soak.TheWatchdogEndsAHungRunWithTheStackOfEveryThread
         COMMAND bash -c "out=$(\"$0\" \"$1\" --seconds 60 --hang-after 3 --watchdog 5 2>&1); code=$?; echo \"$out\"; \
[ $code -eq 2 ] && grep -q 'thread 0 made no progress' <<<\"$out\" && \
[ $(grep -c 'stack of thread' <<<\"$out\") -ge 9 ] && grep -q 'sdm_soak.exe+0x' <<<\"$out\""
         ${CMAKE_BINARY_DIR}/wine-run.sh ${CMAKE_BINARY_DIR}/bin/sdm_soak.exe)
set_tests_properties(Soak.TheWatchdogEndsAHungRunWithTheStackOfEveryThread PROPERTIES
                     FIXTURES_REQUIRED wq_root_registered TIMEOUT 120 LABELS module)
add_test(NAME HeapChecked.Soak.ShortRun
         COMMAND ${CMAKE_BINARY_DIR}/wine-run.sh ${CMAKE_BINARY_DIR}/bin/sdm_soak.exe --seconds 20)
# Serial: a root server that this run starts inherits the heap checks and is slow for every client
# it serves, so no other test shares it.
set_tests_properties(HeapChecked.Soak.ShortRun PROPERTIES FIXTURES_REQUIRED wq_root_registered TIMEOUT 300
                     LABELS module ENVIRONMENT "WINEDEBUG=warn+heap" FAIL_REGULAR_EXPRESSION "warn:heap"
                     RUN_SERIAL TRUE)
