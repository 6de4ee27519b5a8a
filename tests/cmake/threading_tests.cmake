# Threading infrastructure: reference-counted critical sections and guarded data, events and the
# message-pumping wait, threaded tasks and the scheduler, structured exceptions, interface call
# functors and the proxy policy.
add_library(wq_threading_testsupport STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/threadingdoubles.cpp)
target_include_directories(wq_threading_testsupport PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_threading_testsupport PUBLIC sdm_threading wq_basetestsupport)

wq_add_test(test_threading
  ${CMAKE_CURRENT_SOURCE_DIR}/test_refcount_critsection.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_guarded_data.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_thread_sync.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_threaded_task.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_thread_scheduler.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_sta_wait.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_structured_exceptions.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_com_functor.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_com_proxy_policy.cpp)
target_link_libraries(test_threading PRIVATE wq_threading_testsupport sdm_threading)

# Checks at process exit that the scheduler was destroyed: a process of its own.
wq_add_test(test_scheduler_shutdown ${CMAKE_CURRENT_SOURCE_DIR}/test_scheduler_shutdown.cpp)
target_link_libraries(test_scheduler_shutdown PRIVATE sdm_threading)
