# What the cross toolchains share. ${mingw} is the name that their tools begin with.
set(CMAKE_FIND_ROOT_PATH /usr/${mingw})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The C++ runtime is that of this compiler, whose packages have the notices of it.
set(TARNEX_DEBIAN_GCC ${mingw}-g++${flavour})

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/emulator.sh)

# Debian's header-only libraries lie among the headers of the machine that builds, which must stay out of
# sight. Links let the compiler see these two and nothing else.
set(TARNEX_DEPENDENCY_HEADERS ${CMAKE_BINARY_DIR}/dependencies)
foreach(library spdlog fmt)
    if(NOT EXISTS ${TARNEX_DEPENDENCY_HEADERS}/${library})
        file(MAKE_DIRECTORY ${TARNEX_DEPENDENCY_HEADERS})
        file(CREATE_LINK /usr/include/${library} ${TARNEX_DEPENDENCY_HEADERS}/${library} SYMBOLIC)
    endif()
endforeach()
set(TARNEX_GOOGLETEST_SOURCE /usr/src/googletest)
