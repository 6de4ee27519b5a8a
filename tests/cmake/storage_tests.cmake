# Tests of the registry and the environment storage, against the real registry and environment.

# Helpers: a registry root key per test, the plain registry and environment calls, storage calls.
add_library(wq_storagetestsupport STATIC ${CMAKE_CURRENT_SOURCE_DIR}/support/storagetesthelpers.cpp)
target_include_directories(wq_storagetestsupport PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_storagetestsupport PUBLIC wq_testsupport sdm_storage sdm_io advapi32)

wq_add_test(test_storage_registry
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagereg.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storageregvolatile.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storageregbadinput.cpp)
target_link_libraries(test_storage_registry PRIVATE sdm_storage sdm_io wq_storagetestsupport)

wq_add_test(test_storage_environment ${CMAKE_CURRENT_SOURCE_DIR}/test_storageenv.cpp)
target_link_libraries(test_storage_environment PRIVATE sdm_storage sdm_io wq_storagetestsupport)

wq_add_test(test_storage_shared
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagereadall.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storagemanager.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storageleaks.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_storageloggedstep.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/test_walkselflisting.cpp)
target_link_libraries(test_storage_shared PRIVATE sdm_storage sdm_io wq_storagetestsupport wq_storagedoubles)

# Keys, names and values with an embedded NUL character, through the manager, every access
# layer and every storage.
wq_add_test(test_embedded_nul ${CMAKE_CURRENT_SOURCE_DIR}/test_embeddednul.cpp)
target_link_libraries(test_embedded_nul PRIVATE wq_storagedbsupport)
