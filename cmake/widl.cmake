# Compiles the module's IDL with widl into the header, the GUID definitions, the type library
# and the proxy/stub sources (with dlldata.c), all in ${WQ_GENERATED_DIR}.
set(WQ_IDL ${CMAKE_SOURCE_DIR}/sessiondatamng/xsessiondatamng.idl)
set(WQ_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${WQ_GENERATED_DIR})
set(WIDL_FLAGS --win64 -I/usr/include/wine/wine/windows -L/usr/lib/x86_64-linux-gnu/wine/x86_64-windows)

add_custom_command(
  OUTPUT ${WQ_GENERATED_DIR}/xsessiondatamng_h.h ${WQ_GENERATED_DIR}/xsessiondatamng_i.c
         ${WQ_GENERATED_DIR}/xsessiondatamng_p.c ${WQ_GENERATED_DIR}/xsessiondatamng.tlb
         ${WQ_GENERATED_DIR}/dlldata.c
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -h -o xsessiondatamng_h.h ${WQ_IDL}
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -u -o xsessiondatamng_i.c ${WQ_IDL}
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -t -o xsessiondatamng.tlb ${WQ_IDL}
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -p -Oif -H xsessiondatamng_h.h -o xsessiondatamng_p.c ${WQ_IDL}
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} --dlldata=dlldata.c --dlldata-only xsessiondatamng
  DEPENDS ${WQ_IDL}
  WORKING_DIRECTORY ${WQ_GENERATED_DIR}
  COMMENT "widl: xsessiondatamng.idl"
  VERBATIM)
add_custom_target(wq_idl DEPENDS ${WQ_GENERATED_DIR}/xsessiondatamng_h.h ${WQ_GENERATED_DIR}/xsessiondatamng.tlb)

# The interface declarations and GUIDs, for the module, the tests and the tools.
add_library(wq_interfaces STATIC ${WQ_GENERATED_DIR}/xsessiondatamng_i.c)
add_dependencies(wq_interfaces wq_idl)
target_include_directories(wq_interfaces PUBLIC ${WQ_GENERATED_DIR})
target_link_libraries(wq_interfaces PUBLIC ole32 oleaut32 uuid)
