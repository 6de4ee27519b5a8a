# The second compiler: clang for the same Windows x64 target, with the MinGW-w64 headers and
# libraries, GCC 12's (posix) C++ library and lld. Builds the same sources as the GCC toolchain.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(WQ_MINGW_ROOT /usr/x86_64-w64-mingw32)
set(WQ_GCC_CXX_INCLUDE /usr/lib/gcc/x86_64-w64-mingw32/12-posix/include/c++)

set(CMAKE_C_COMPILER   clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET   x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_RC_COMPILER  x86_64-w64-mingw32-windres)
set(WIDL_EXECUTABLE    x86_64-w64-mingw32-widl)
set(CMAKE_SYSROOT ${WQ_MINGW_ROOT})

set(CMAKE_C_FLAGS_INIT "")
set(CMAKE_CXX_FLAGS_INIT "-nostdinc++ -isystem ${WQ_GCC_CXX_INCLUDE} -isystem ${WQ_GCC_CXX_INCLUDE}/x86_64-w64-mingw32 -isystem ${WQ_GCC_CXX_INCLUDE}/backward")

set(CMAKE_FIND_ROOT_PATH ${WQ_MINGW_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# lld, and the C and C++ runtimes of GCC 12 (posix) linked statically, as with GCC.
set(WQ_GCC_LIB /usr/lib/gcc/x86_64-w64-mingw32/12-posix)
set(CMAKE_EXE_LINKER_FLAGS_INIT    "-fuse-ld=lld -L${WQ_GCC_LIB} -static -static-libgcc -static-libstdc++ -lpthread -Wno-unused-command-line-argument")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -L${WQ_GCC_LIB} -static -static-libgcc -static-libstdc++ -lpthread -Wno-unused-command-line-argument")
