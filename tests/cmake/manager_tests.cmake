# The manager core: routing, the all-categories walk, values, lifetime, concurrency, leaks.
wq_add_test(test_manager
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_routing.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_walk.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_transfer.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_keywalk.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_values.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_lifetime.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_encrypt.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_leaks.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_concurrency.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_manager_translator.cpp)
target_link_libraries(test_manager PRIVATE wq_testsupport)
wq_add_test(test_core_allocation ${CMAKE_CURRENT_SOURCE_DIR}/test_core_allocation.cpp)
target_link_libraries(test_core_allocation PRIVATE wq_testsupport)
