# Threading infrastructure: reference-counted critical sections with guarded data, events and
# the message-pumping wait, threaded tasks and their scheduler, the structured-exception guard
# (cominc/), interface call functors and the proxy policy (inc/); on the base library.
add_library(sdm_threading STATIC
  ${CMAKE_SOURCE_DIR}/cominc/XBasicCritSection.cpp
  ${CMAKE_SOURCE_DIR}/cominc/XThreadSync.cpp
  ${CMAKE_SOURCE_DIR}/cominc/XThreadedTask.cpp
  ${CMAKE_SOURCE_DIR}/cominc/XDelegatorThreadScheduler.cpp
  ${CMAKE_SOURCE_DIR}/cominc/XStructuredExceptionGuard.cpp
  ${CMAKE_SOURCE_DIR}/inc/wqcomfunctor.cpp
  ${CMAKE_SOURCE_DIR}/inc/WQComProxy.cpp)
target_include_directories(sdm_threading PUBLIC ${CMAKE_SOURCE_DIR}/cominc ${CMAKE_SOURCE_DIR}/inc)
target_link_libraries(sdm_threading PUBLIC sdm_base user32)
# clang compiles the structured-exception scope of the guard itself (__try/__except).
set_source_files_properties(${CMAKE_SOURCE_DIR}/cominc/XStructuredExceptionGuard.cpp PROPERTIES
  COMPILE_OPTIONS "$<$<CXX_COMPILER_ID:Clang>:-fms-extensions>")
