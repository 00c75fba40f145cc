# Cross-compiles for 64-bit Windows with Debian's clang and lld, on MinGW GCC's headers and libraries.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

if(NOT DEFINED mingw)
    set(mingw x86_64-w64-mingw32)
    set(flavour -posix)
endif()
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_SYSROOT /usr/${mingw})
set(CMAKE_RC_COMPILER ${mingw}-windres)

# Of GCC's runtimes clang would not find this one by itself. GCC knows where it is.
execute_process(COMMAND ${mingw}-g++${flavour} -print-libgcc-file-name
    OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
cmake_path(GET runtime PARENT_PATH runtime)
set(CMAKE_CXX_FLAGS_INIT
    "-isystem ${runtime}/include/c++ -isystem ${runtime}/include/c++/${mingw}")
foreach(kind EXE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -L${runtime}")
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
