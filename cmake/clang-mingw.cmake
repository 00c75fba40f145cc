# Cross-compiles for 64-bit Windows with Debian's clang and lld, on MinGW GCC's headers and libraries.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_OBJCOPY x86_64-w64-mingw32-objcopy CACHE FILEPATH "")
set(CMAKE_STRIP x86_64-w64-mingw32-strip CACHE FILEPATH "")

# Of the two flavours of GCC's runtime clang would not find the one with threads by itself.
set(runtime /usr/lib/gcc/x86_64-w64-mingw32/12-posix)
set(CMAKE_CXX_FLAGS_INIT
    "-isystem ${runtime}/include/c++ -isystem ${runtime}/include/c++/x86_64-w64-mingw32")
foreach(kind EXE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -L${runtime} -lwinpthread")
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
