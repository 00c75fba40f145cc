# Cross-compiles for 64-bit Windows with Debian's MinGW GCC, and runs the results under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The "posix" flavour is the one with the standard library's threads and mutexes.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
