# The automation object through real script engines: Wine's cscript runs the scripts in
# tests/scripts as a user would, against WQSessionDataSession64.dll registered with regsvr32.
file(TO_NATIVE_PATH "${CMAKE_BINARY_DIR}/bin/WQSessionDataSession64.dll" WQ_SESSION_DLL_UNIX)
string(REPLACE "/" "\\" WQ_SESSION_DLL_WINPATH "Z:${WQ_SESSION_DLL_UNIX}")
add_test(NAME register_session COMMAND ${CMAKE_BINARY_DIR}/wine-run.sh regsvr32 /s ${WQ_SESSION_DLL_WINPATH})
# Registered with the storage root, so that every test that needs the root's registration finds the
# session's too.
set_tests_properties(register_session PROPERTIES FIXTURES_SETUP "wq_session_registered;wq_root_registered"
                     TIMEOUT 120)

# wq_add_script_test(<name> <script> [expected output file]): cscript runs the script; it passes
# when the script ends with exit code 0 (and, with an expected file, prints exactly that).
function(wq_add_script_test name script)
  file(TO_NATIVE_PATH "${CMAKE_CURRENT_SOURCE_DIR}/scripts/${script}" unix)
  string(REPLACE "/" "\\" win "Z:${unix}")
  set(expected "")
  if(ARGC GREATER 2)
    set(expected ${CMAKE_CURRENT_SOURCE_DIR}/scripts/${ARGV2})
  endif()
  add_test(NAME Scripts.${name}
           COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/host/run_script.sh ${CMAKE_BINARY_DIR} ${win} "${expected}")
  set_tests_properties(Scripts.${name} PROPERTIES FIXTURES_REQUIRED "wq_session_registered;wq_root_registered"
                       TIMEOUT 180 LABELS module)
endfunction()

wq_add_script_test(TheReadmeVBScriptExampleRunsAsShown readme_example.vbs readme_example.expected)
wq_add_script_test(EveryMethodFromVBScript session_methods.vbs)
wq_add_script_test(EveryCollectionAndErrorFromJScript session_methods.js)
wq_add_script_test(TheReadmeJScriptExampleRunsAsShown readme_example.js readme_example_js.expected)
add_test(NAME Scripts.TheReadmeShowsTheScriptsTheTestsRun
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/host/readme_scripts.sh ${CMAKE_SOURCE_DIR}/README.md
                 ${CMAKE_CURRENT_SOURCE_DIR}/scripts/readme_example.vbs ${CMAKE_CURRENT_SOURCE_DIR}/scripts/readme_example.js)
set_tests_properties(Scripts.TheReadmeShowsTheScriptsTheTestsRun PROPERTIES LABELS module)

# The object through IDispatch from C++, as a script host calls it.
wq_add_root_test(test_session_dispatch FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_session_dispatch.cpp)
target_link_libraries(test_session_dispatch PRIVATE sdm_ctl)
add_dependencies(test_session_dispatch WQSessionDataSession64)

# Calls from a script run by the VBScript engine in the test process, counted by a malloc spy.
wq_add_root_test(test_session_scriptleaks FALSE ${CMAKE_CURRENT_SOURCE_DIR}/test_session_scriptleaks.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/support/scripthost.cpp)
target_link_libraries(test_session_scriptleaks PRIVATE sdm_ctl)
add_dependencies(test_session_scriptleaks WQSessionDataSession64)
