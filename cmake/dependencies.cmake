# spdlog and fmt. The toolchains for cross-compiling name the folder that holds their headers; elsewhere a package
# manager provides them. Of its targets only the folders count: spdlog's would link the library of fmt as well.
if(DEFINED TARNEX_DEPENDENCY_HEADERS)
    # One that was given without its type may be relative: this makes it absolute.
    set(TARNEX_DEPENDENCY_HEADERS ${TARNEX_DEPENDENCY_HEADERS} CACHE PATH "Folder with the headers of spdlog and fmt")
    set(headers ${TARNEX_DEPENDENCY_HEADERS})
    foreach(header spdlog/logger.h fmt/format.h)
        if(NOT EXISTS ${headers}/${header} OR EXISTS ${headers}/stdio.h)
            message(FATAL_ERROR "TARNEX_DEPENDENCY_HEADERS, ${headers}, has no ${header}, or a C library's headers as "
                "well: name a folder that holds just spdlog/ and fmt/ (links will do).")
        endif()
    endforeach()
else()
    set(headers "")
    foreach(target fmt::fmt-header-only spdlog::spdlog_header_only)
        string(REGEX REPLACE ":.*" "" package ${target})
        find_package(${package} CONFIG QUIET)
        if(NOT TARGET ${target})
            message(FATAL_ERROR "${package} was not found. Install it (MSYS2: pacman -S $MINGW_PACKAGE_PREFIX-${package}), "
                "name the folder of its ${package}Config.cmake by -D${package}_DIR=<folder>, or name a folder that holds just "
                "the headers, spdlog/ and fmt/, by -DTARNEX_DEPENDENCY_HEADERS=<folder>.")
        endif()
        list(APPEND headers $<TARGET_PROPERTY:${target},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
endif()
add_library(tarnex_dependencies INTERFACE)
target_include_directories(tarnex_dependencies SYSTEM INTERFACE ${headers})
target_compile_definitions(tarnex_dependencies INTERFACE
    FMT_HEADER_ONLY
    SPDLOG_WCHAR_FILENAMES
    SPDLOG_FMT_EXTERNAL
    # No message groups digits by the user's locale; without this switch that takes half a megabyte of code. Not every
    # resource compiler takes the quotes.
    $<$<COMPILE_LANGUAGE:CXX>:FMT_STATIC_THOUSANDS_SEPARATOR=','>
    # No logger that writes to the host's console. (spdlog's error handler still writes to stderr, at most once a
    # second, when the disk is full.)
    SPDLOG_DISABLE_DEFAULT_LOGGER
    # Processes that the host starts do not inherit the log file.
    SPDLOG_PREVENT_CHILD_FD
    # No line shows the thread, whose look-up costs time with every message.
    SPDLOG_NO_THREAD_ID)

# fmt 11.1 replaced that switch; 11.1 itself does not compile with the new one.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_DEFINITIONS -DFMT_HEADER_ONLY -DFMT_USE_LOCALE=0)
if(DEFINED TARNEX_DEPENDENCY_HEADERS)
    set(CMAKE_REQUIRED_INCLUDES ${TARNEX_DEPENDENCY_HEADERS})
else()
    set(CMAKE_REQUIRED_LIBRARIES fmt::fmt-header-only)
endif()
check_cxx_source_compiles("#include <fmt/chrono.h>\nint main() {}" TARNEX_FMT_WITHOUT_LOCALE)
unset(CMAKE_REQUIRED_DEFINITIONS)
unset(CMAKE_REQUIRED_INCLUDES)
unset(CMAKE_REQUIRED_LIBRARIES)
if(TARNEX_FMT_WITHOUT_LOCALE)
    target_compile_definitions(tarnex_dependencies INTERFACE FMT_USE_LOCALE=0)
endif()
