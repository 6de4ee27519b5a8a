# The module as COM sees it: registration with regsvr32, class creation, marshalling, the type
# library. The module is registered once in the prefix before these tests run.
file(TO_NATIVE_PATH "${CMAKE_BINARY_DIR}/bin/WQSessionDataMng64.dll" WQ_DLL_UNIX)
string(REPLACE "/" "\\" WQ_DLL_WINPATH "Z:${WQ_DLL_UNIX}")
add_test(NAME register_module COMMAND ${CMAKE_BINARY_DIR}/wine-run.sh regsvr32 /s ${WQ_DLL_WINPATH})
set_tests_properties(register_module PROPERTIES FIXTURES_SETUP wq_registered TIMEOUT 120)

add_library(wq_moduletest STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/moduletest.cpp)
target_link_libraries(wq_moduletest PUBLIC wq_testsupport)

# wq_add_module_test(<name> <serial: TRUE|FALSE> <sources...>)
function(wq_add_module_test name serial)
  add_executable(${name} ${ARGN} ${CMAKE_CURRENT_SOURCE_DIR}/test_main.cpp)
  target_link_libraries(${name} PRIVATE wq_moduletest gtest advapi32)
  add_dependencies(${name} WQSessionDataMng64)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 300
    PROPERTIES TIMEOUT 120 FIXTURES_REQUIRED wq_registered RUN_SERIAL ${serial} LABELS module)
endfunction()

wq_add_module_test(test_module_registration TRUE ${CMAKE_CURRENT_SOURCE_DIR}/test_module_registration.cpp)
wq_add_module_test(test_module_classes FALSE
  ${CMAKE_CURRENT_SOURCE_DIR}/test_module_classes.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_marshalling.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_typelib.cpp)

wq_add_test(test_app_init ${CMAKE_CURRENT_SOURCE_DIR}/test_app_init.cpp)
target_link_libraries(test_app_init PRIVATE sdm_module)

wq_add_module_test(test_module_extended FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_module_extended.cpp)
target_link_libraries(test_module_extended PRIVATE wq_storagedoubles)

wq_add_module_test(test_module_ioexchain FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_module_ioexchain.cpp)
target_link_libraries(test_module_ioexchain PRIVATE wq_storagedoubles)

# Cross-process marshalling: a local-server host process activated through LocalServer32.
add_executable(wq_localserver_host ${CMAKE_CURRENT_SOURCE_DIR}/localserver/localserverhost.cpp)
target_link_libraries(wq_localserver_host PRIVATE sessiondatamng_core ole32 oleaut32 uuid)
target_include_directories(wq_localserver_host PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_options(wq_localserver_host PRIVATE -municode)
wq_add_module_test(test_module_localserver TRUE ${CMAKE_CURRENT_SOURCE_DIR}/test_module_localserver.cpp)
target_include_directories(test_module_localserver PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
add_dependencies(test_module_localserver wq_localserver_host)

wq_add_module_test(test_module_dbchain FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_module_dbchain.cpp)
target_link_libraries(test_module_dbchain PRIVATE wq_storagedoubles)
