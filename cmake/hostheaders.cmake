# Header-only libraries from Debian packages: CLI11 (libcli11-dev, command-line parsing) and
# nlohmann-json (nlohmann-json3-dev, JSON). The cross compiler sees them through a folder of their
# own in the build tree, never through /usr/include, whose other headers are the host's.
set(WQ_HOST_HEADERS ${CMAKE_BINARY_DIR}/hostheaders)
file(MAKE_DIRECTORY ${WQ_HOST_HEADERS})
foreach(dir CLI nlohmann)
  if(NOT EXISTS /usr/include/${dir})
    message(FATAL_ERROR "/usr/include/${dir} is missing: install libcli11-dev and nlohmann-json3-dev")
  endif()
  if(NOT EXISTS ${WQ_HOST_HEADERS}/${dir})
    file(CREATE_LINK /usr/include/${dir} ${WQ_HOST_HEADERS}/${dir} SYMBOLIC)
  endif()
endforeach()
add_library(wq_hostheaders INTERFACE)
target_include_directories(wq_hostheaders SYSTEM INTERFACE ${WQ_HOST_HEADERS})
