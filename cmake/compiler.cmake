# Keeps the macros min and max of <windows.h> out of everybody's way.
add_compile_definitions(NOMINMAX)

# Warnings are errors in the library's own code.
add_library(tarnex_warnings INTERFACE)
if(MSVC)
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
    target_compile_options(tarnex_warnings INTERFACE /W4 /WX /permissive- /utf-8)
else()
    target_compile_options(tarnex_warnings INTERFACE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
endif()

# Links the language runtimes into a target, which then needs no DLL but Windows' own.
function(tarnex_self_contained target)
    if(NOT MSVC)
        target_link_options(${target} PRIVATE -static)
    endif()
endfunction()
