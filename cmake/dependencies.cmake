# spdlog and fmt, header-only. The toolchains for cross-compiling name the folder that holds them; elsewhere a
# package manager provides them.
add_library(tarnex_dependencies INTERFACE)
if(DEFINED TARNEX_DEPENDENCY_HEADERS)
    target_include_directories(tarnex_dependencies SYSTEM INTERFACE ${TARNEX_DEPENDENCY_HEADERS})
    target_compile_definitions(tarnex_dependencies INTERFACE FMT_HEADER_ONLY)
else()
    find_package(fmt CONFIG REQUIRED)
    find_package(spdlog CONFIG REQUIRED)
    target_link_libraries(tarnex_dependencies INTERFACE fmt::fmt-header-only spdlog::spdlog_header_only)
endif()
target_compile_definitions(tarnex_dependencies INTERFACE
    SPDLOG_WCHAR_FILENAMES
    SPDLOG_FMT_EXTERNAL
    # No message groups digits by the user's locale; without this switch that takes half a megabyte of code. The
    # second one takes its place from fmt 11.1 on.
    FMT_STATIC_THOUSANDS_SEPARATOR=','
    FMT_USE_LOCALE=0
    # A library does not touch its host's console.
    SPDLOG_DISABLE_DEFAULT_LOGGER
    # Nor does it keep the log file open in the processes that its host starts.
    SPDLOG_PREVENT_CHILD_FD
    # No line shows the thread, and finding it out costs a look-up with every message.
    SPDLOG_NO_THREAD_ID)
