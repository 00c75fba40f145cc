# Keeps the macros min and max of <windows.h> out of everybody's way.
add_compile_definitions(NOMINMAX)

# Warnings are errors in the library's own code.
add_library(tarnex_warnings INTERFACE)
if(MSVC)
    add_compile_definitions(_CRT_SECURE_NO_WARNINGS)  # _wgetenv is what is wanted
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
    target_compile_options(tarnex_warnings INTERFACE /W4 /WX /permissive- /utf-8)
    # The exports are extern "C" and yet let exceptions out.
    string(REPLACE "/EHsc" "/EHs" CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}")
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

# Moves the debug symbols of a target into a file of their own beside it.
function(tarnex_separate_symbols target)
    if(MSVC)
        target_link_options(${target} PRIVATE /DEBUG /OPT:REF /OPT:ICF)
    else()
        set(symbols $<TARGET_FILE:${target}>.debug)
        add_custom_command(TARGET ${target} POST_BUILD
            COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${symbols}
            COMMAND ${CMAKE_STRIP} --strip-all $<TARGET_FILE:${target}>
            COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${symbols} $<TARGET_FILE:${target}>
            VERBATIM)
    endif()
endfunction()
