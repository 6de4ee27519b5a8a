# The access layers between the manager and a storage.
add_library(sdm_io STATIC
  ${CMAKE_CURRENT_LIST_DIR}/xcollatedmap.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xsessiondatavalues.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xstoredarrayhandover.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xstoragekind.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xsessiondataiobase.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xsessiondataionocache.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xsessiondataio.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xsessiondataioex.cpp
  ${CMAKE_CURRENT_LIST_DIR}/xsessiondataioexdb.cpp)
target_include_directories(sdm_io PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(sdm_io PUBLIC sdm_base)
