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

# The storage-root server's declarations: header, GUIDs and type library (its interface is an
# automation interface, marshalled by the system from the registered type library).
set(WQ_ROOT_IDL ${CMAKE_SOURCE_DIR}/storageroot/xstorageroot.idl)
add_custom_command(
  OUTPUT ${WQ_GENERATED_DIR}/xstorageroot_h.h ${WQ_GENERATED_DIR}/xstorageroot_i.c ${WQ_GENERATED_DIR}/xstorageroot.tlb
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -h -o xstorageroot_h.h ${WQ_ROOT_IDL}
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -u -o xstorageroot_i.c ${WQ_ROOT_IDL}
  COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -t -o xstorageroot.tlb ${WQ_ROOT_IDL}
  DEPENDS ${WQ_ROOT_IDL}
  WORKING_DIRECTORY ${WQ_GENERATED_DIR}
  COMMENT "widl: xstorageroot.idl"
  VERBATIM)
add_custom_target(wq_root_idl DEPENDS ${WQ_GENERATED_DIR}/xstorageroot_h.h ${WQ_GENERATED_DIR}/xstorageroot.tlb)
add_library(wq_root_interfaces STATIC ${WQ_GENERATED_DIR}/xstorageroot_i.c)
add_dependencies(wq_root_interfaces wq_root_idl)
target_include_directories(wq_root_interfaces PUBLIC ${WQ_GENERATED_DIR})
target_link_libraries(wq_root_interfaces PUBLIC ole32 oleaut32 uuid)
