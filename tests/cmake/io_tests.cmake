# Tests of the access layers (cached and uncached IO) and of the volatile storage.

# Test doubles: a recording storage that poses as any kind of storage, and call helpers.
add_library(wq_storagedoubles STATIC
  ${CMAKE_CURRENT_SOURCE_DIR}/support/recordingstorage.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/support/iotesthelpers.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/support/rootapartment.cpp)
target_include_directories(wq_storagedoubles PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/support)
target_link_libraries(wq_storagedoubles PUBLIC wq_testsupport sdm_io sdm_storage)

wq_add_test(test_io_values test_collatedmap.cpp test_textindex.cpp test_valuetable.cpp test_storagekind.cpp)
target_link_libraries(test_io_values PRIVATE sdm_io sdm_storage wq_storagedoubles)

wq_add_test(test_io_nocache test_sessiondataionocache.cpp)
target_link_libraries(test_io_nocache PRIVATE sdm_io sdm_storage wq_storagedoubles)

wq_add_test(test_io_cache test_sessiondataio.cpp test_sessiondataioimpl.cpp)
target_link_libraries(test_io_cache PRIVATE sdm_io sdm_storage wq_storagedoubles)

wq_add_test(test_io_contract test_iocollation.cpp test_ioownership.cpp test_ioerrors.cpp test_ioleaks.cpp
            test_iothreads.cpp)
target_link_libraries(test_io_contract PRIVATE sdm_io sdm_storage wq_storagedoubles)

wq_add_test(test_storage_volatile test_storagevolatile.cpp test_ioendtoend.cpp)
target_link_libraries(test_storage_volatile PRIVATE sdm_io sdm_storage wq_storagedoubles)

wq_add_test(test_io_extended test_sessiondataioex.cpp test_sessiondataioexdb.cpp test_ioexleaks.cpp)
target_link_libraries(test_io_extended PRIVATE sdm_io sdm_storage wq_storagedoubles)
