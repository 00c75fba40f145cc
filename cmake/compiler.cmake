# Keeps the macros min and max of <windows.h> out of everybody's way.
add_compile_definitions(NOMINMAX)

include(CheckCXXSourceCompiles)
include(CheckCXXSymbolExists)

if(MINGW)
    check_cxx_source_compiles("#include <mutex>\nint main() { return sizeof(std::mutex) == 0; }" TARNEX_STD_MUTEX)
    if(NOT TARNEX_STD_MUTEX)
        message(FATAL_ERROR "The C++ library of ${CMAKE_CXX_COMPILER} has no std::mutex. Take the flavour of MinGW GCC "
            "for \"posix\" threads (on Debian x86_64-w64-mingw32-g++-posix, in the package g++-mingw-w64-x86-64-posix).")
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
        add_link_options(-pthread)  # GCC links its thread library unasked
    endif()
    # The C runtime: the universal one, or msvcrt.dll.
    check_cxx_symbol_exists(_UCRT cstdlib TARNEX_UCRT)
endif()

# Warnings are errors, unless the library is part of somebody else's project or CMake is told otherwise
# (--compile-no-warning-as-error): other compilers have other warnings.
set(CMAKE_COMPILE_WARNING_AS_ERROR ${PROJECT_IS_TOP_LEVEL})
add_library(tarnex_warnings INTERFACE)
if(MSVC)
    add_compile_definitions(_CRT_SECURE_NO_WARNINGS)  # _wgetenv is what is wanted
    set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
    # C4702, unreachable code, comes from the optimizer, which also warns of it in the headers of other libraries.
    target_compile_options(tarnex_warnings INTERFACE /W4 /wd4702 /permissive- /utf-8)
    # The exports are extern "C" and yet let exceptions out.
    string(REPLACE "/EHsc" "/EHs" CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}")
else()
    target_compile_options(tarnex_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
endif()

# Hardening flags; the "dll" test checks the DLL's headers for them. Most are the linkers' default: named here so that
# they stay.
if(MSVC)
    add_compile_options(/guard:cf)
    add_link_options(/guard:cf /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT)
    set(TARNEX_GUARD_CF ON)
else()
    add_compile_options(-fstack-protector-strong $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
    add_link_options(-fstack-protector-strong -Wl,--dynamicbase,--nxcompat,--high-entropy-va)
    # Control Flow Guard needs a table from the C runtime, "_load_config_used". Without it, Windows guards nothing,
    # though the linker sets the flag: it only warns.
    set(CMAKE_REQUIRED_FLAGS -mguard=cf)
    check_cxx_source_compiles("int main() {}" TARNEX_GUARD_CF FAIL_REGEX "_load_config_used")
    unset(CMAKE_REQUIRED_FLAGS)
    if(TARNEX_GUARD_CF)
        add_compile_options($<$<NOT:$<COMPILE_LANGUAGE:RC>>:-mguard=cf>)
        add_link_options(-mguard=cf)
    endif()
endif()

# The same sources give the same bytes, wherever and whenever they are built. Paths begin at the project's root.
if(MSVC)
    add_compile_options(/Brepro)
    add_link_options(/Brepro)
else()
    add_compile_options($<$<NOT:$<COMPILE_LANGUAGE:RC>>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>)
    add_link_options(-Wl,--no-insert-timestamp)
endif()

# Debug symbols: a PDB for Windows' debuggers where clang's linker is lld, otherwise DWARF for gdb. (GCC 14 takes
# -gcodeview too, but writes nothing.)
if(MSVC)
    set(TARNEX_SYMBOLS /Zi)
    set(TARNEX_PDB ON)
else()
    set(TARNEX_SYMBOLS -g)
    if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
        set(CMAKE_REQUIRED_FLAGS -gcodeview)
        set(CMAKE_REQUIRED_LINK_OPTIONS -Wl,--pdb= -Wl,-Xlink=-pdbsourcepath:.)
        check_cxx_source_compiles("int main() {}" TARNEX_PDB)
        unset(CMAKE_REQUIRED_FLAGS)
        unset(CMAKE_REQUIRED_LINK_OPTIONS)
    endif()
    if(TARNEX_PDB)
        list(APPEND TARNEX_SYMBOLS -gcodeview -fdebug-compilation-dir=.)
    endif()
endif()

# Links the language runtimes into a target, which then needs no DLL but Windows' own.
function(tarnex_self_contained target)
    if(NOT MSVC)
        target_link_options(${target} PRIVATE -static)
    endif()
endfunction()

# Moves the debug symbols of a target into files of their own beside it.
function(tarnex_separate_symbols target)
    if(MSVC)
        target_link_options(${target} PRIVATE /DEBUG /OPT:REF /OPT:ICF /PDBALTPATH:%_PDB%)
        return()
    endif()
    if(TARNEX_PDB)
        # The PDB lies beside the DLL, which names it without a path; it holds no path of this machine. "-s" leaves out
        # the runtime's DWARF.
        target_link_options(${target} PRIVATE -s -Wl,--gc-sections -Wl,--pdb=
            -Wl,-Xlink=-pdbaltpath:$<TARGET_FILE_BASE_NAME:${target}>.pdb -Wl,-Xlink=-pdbsourcepath:.)
        return()
    endif()
    # With link-time optimisation the lines are made by the link.
    target_link_options(${target} PRIVATE -g -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
    set(symbols $<TARGET_FILE:${target}>.debug)
    # Each of these would write the time of day into the file's header.
    set(reproducible ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0)
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${reproducible} ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:${target}> ${symbols}
        COMMAND ${reproducible} ${CMAKE_STRIP} --strip-all $<TARGET_FILE:${target}>
        COMMAND ${reproducible} ${CMAKE_OBJCOPY} --add-gnu-debuglink=${symbols} $<TARGET_FILE:${target}>
        VERBATIM)
endfunction()
