# The storages behind the IO layers: one source file per storage class.
set(SDM_STORAGE_SOURCES
  xsessiondatastoragevolatile.cpp
  xstoragepairs.cpp
  xstorageloggedstep.cpp
  xsessiondatastoragereadall.cpp
  xsessiondatastoragereg.cpp
  xsessiondatastorageenv.cpp
  xsessiondatastoragedb.cpp
  xasyncstoragedelegator.cpp
  xstoragedelegatortask.cpp
  xstoragerootconnhandler.cpp
  xstoragerootregistration.cpp
  xdelegatorreport.cpp)
list(TRANSFORM SDM_STORAGE_SOURCES PREPEND ${CMAKE_CURRENT_LIST_DIR}/)

add_library(sdm_storage STATIC ${SDM_STORAGE_SOURCES})
target_include_directories(sdm_storage PUBLIC ${CMAKE_CURRENT_LIST_DIR})
# On the IO layers (the value arrays that the cached layer hands over, the database layer that
# forwards to a proxy root) and the threading infrastructure (the delegator's worker).
target_link_libraries(sdm_storage PUBLIC sdm_base sdm_io sdm_threading)
