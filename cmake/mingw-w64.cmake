# Cross-compiles for 64-bit Windows with Debian's MinGW GCC, and runs the results under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# Of the toolchain for msvcrt.dll, the "posix" flavour is the one with the standard library's threads and mutexes.
if(NOT DEFINED mingw)
    set(mingw x86_64-w64-mingw32)
    set(flavour -posix)
endif()
set(CMAKE_C_COMPILER ${mingw}-gcc${flavour})
set(CMAKE_CXX_COMPILER ${mingw}-g++${flavour})
set(CMAKE_RC_COMPILER ${mingw}-windres)

include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
