# Compiles IDL files with widl into ${WQ_GENERATED_DIR}: the header, the GUID definitions, the type
# library and, where asked for, the proxy/stub sources (with dlldata.c).
set(WQ_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
file(MAKE_DIRECTORY ${WQ_GENERATED_DIR})
set(WIDL_FLAGS --win64 -I/usr/include/wine/wine/windows -L/usr/lib/x86_64-linux-gnu/wine/x86_64-windows)

# wq_widl(<target> <idl> <name> [PROXY]): <name>_h.h, <name>_i.c and <name>.tlb (and with PROXY
# <name>_p.c and dlldata.c), made by the custom target <target>.
function(wq_widl target idl name)
  set(outputs ${WQ_GENERATED_DIR}/${name}_h.h ${WQ_GENERATED_DIR}/${name}_i.c ${WQ_GENERATED_DIR}/${name}.tlb)
  set(commands
    COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -h -o ${name}_h.h ${idl}
    COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -u -o ${name}_i.c ${idl}
    COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -t -o ${name}.tlb ${idl})
  if(ARGN STREQUAL "PROXY")
    list(APPEND outputs ${WQ_GENERATED_DIR}/${name}_p.c ${WQ_GENERATED_DIR}/dlldata.c)
    list(APPEND commands
      COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} -p -Oif -H ${name}_h.h -o ${name}_p.c ${idl}
      COMMAND ${WIDL_EXECUTABLE} ${WIDL_FLAGS} --dlldata=dlldata.c --dlldata-only ${name})
  endif()
  get_filename_component(idl_name ${idl} NAME)
  add_custom_command(OUTPUT ${outputs} ${commands} DEPENDS ${idl} WORKING_DIRECTORY ${WQ_GENERATED_DIR}
                     COMMENT "widl: ${idl_name}" VERBATIM)
  add_custom_target(${target} DEPENDS ${WQ_GENERATED_DIR}/${name}_h.h ${WQ_GENERATED_DIR}/${name}.tlb)
endfunction()

# The module's interfaces (marshalled by its own proxy/stub, merged into the DLL).
set(WQ_IDL ${CMAKE_SOURCE_DIR}/sessiondatamng/xsessiondatamng.idl)
wq_widl(wq_idl ${WQ_IDL} xsessiondatamng PROXY)

# The interface declarations and GUIDs, for the module, the tests and the tools.
add_library(wq_interfaces STATIC ${WQ_GENERATED_DIR}/xsessiondatamng_i.c)
add_dependencies(wq_interfaces wq_idl)
target_include_directories(wq_interfaces PUBLIC ${WQ_GENERATED_DIR})
target_link_libraries(wq_interfaces PUBLIC ole32 oleaut32 uuid)

# The storage-root server's declarations: its interface is an automation interface, marshalled by
# the system from the registered type library.
wq_widl(wq_root_idl ${CMAKE_SOURCE_DIR}/storageroot/xstorageroot.idl xstorageroot)
add_library(wq_root_interfaces STATIC ${WQ_GENERATED_DIR}/xstorageroot_i.c)
add_dependencies(wq_root_interfaces wq_root_idl)
target_include_directories(wq_root_interfaces PUBLIC ${WQ_GENERATED_DIR})
target_link_libraries(wq_root_interfaces PUBLIC ole32 oleaut32 uuid)
