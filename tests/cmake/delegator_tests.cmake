# The asynchronous storage delegator: piping, flushing, failures, lifetime and its roots. The
# fake storage roots are registered in the Global Interface Table, which marshals them through
# the module's proxy/stub: these tests need the registered module.
add_library(wq_delegator_testsupport STATIC
  ${CMAKE_CURRENT_SOURCE_DIR}/support/fakestorageroot.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/support/statthread.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/support/delegatortesthelpers.cpp)
target_include_directories(wq_delegator_testsupport PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_delegator_testsupport PUBLIC wq_testsupport wq_threading_testsupport sdm_storage)

wq_add_module_test(test_asyncdelegator FALSE
  ${CMAKE_CURRENT_SOURCE_DIR}/test_asyncdelegator_interval.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_asyncdelegator_connhandler.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_asyncdelegator_pipe.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_asyncdelegator_failures.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_asyncdelegator_lifetime.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_asyncdelegator_root.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_asyncdelegator_leaks.cpp)
target_link_libraries(test_asyncdelegator PRIVATE wq_delegator_testsupport sdm_storage)
