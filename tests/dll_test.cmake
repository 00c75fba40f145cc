# The finished DLL as a file: its exports, the DLLs that it needs, its hardening, its version. Where it has a PDB, that
# is the DLL's, and knows the function and the line of each export.
function(run output)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_VARIABLE text)
    set(${output} "${text}" PARENT_SCOPE)
endfunction()
function(expect what actual expected)
    if(NOT actual MATCHES "^${expected}$")
        message(FATAL_ERROR "${what}: ${actual}\nexpected: ${expected}")
    endif()
endfunction()

run(text ${READOBJ} --coff-exports ${DLL})
string(REGEX MATCHALL "Name: [A-Za-z_0-9]+[^}]*RVA: 0x[0-9A-F]+" exports "${text}")
string(REGEX REPLACE "Name: ([A-Za-z_0-9]+)[^;]*" "\\1" names "${exports}")
expect(exports "${names}" "tarnexCreateAuthHandle_3;tarnexDeleteAuthHandle_3;tarnexFlushLog_3;tarnexGetAPIVersion_3;\
tarnexRemoveAuthParams_3;tarnexSetAuthParams_3;tarnexSetLogLevel_3;tarnexSetLogName_3")

run(text ${READOBJ} --coff-imports ${DLL})
string(REGEX MATCHALL "Name: [^\n]+" names "${text}")
foreach(name IN LISTS names)
    expect(import "${name}" "Name: (ADVAPI32|KERNEL32|SHELL32|SHLWAPI|${RUNTIME}).dll")
endforeach()

run(text ${READOBJ} --file-headers ${DLL})
string(REGEX MATCHALL "IMAGE_DLL_CHARACTERISTICS_[A-Z_]+" flags "${text}")
list(TRANSFORM flags REPLACE "IMAGE_DLL_CHARACTERISTICS_" "")
expect(hardening "${flags}" "DYNAMIC_BASE;${GUARD}HIGH_ENTROPY_VA;NX_COMPAT")

# The text of the version, in UTF-16.
file(READ ${DLL} bytes HEX)
string(HEX "${VERSION}" wanted)
string(REGEX REPLACE "(..)" "\\100" wanted "${wanted}")
if(NOT bytes MATCHES "${wanted}")
    message(FATAL_ERROR "${DLL} is not of version ${VERSION}")
endif()

if(PDB)
    foreach(export IN LISTS exports)
        string(REGEX MATCH "Name: ([A-Za-z_0-9]+).*RVA: (0x[0-9A-F]+)" export "${export}")
        set(name ${CMAKE_MATCH_1})
        run(found ${SYMBOLIZER} --obj=${DLL} --relative-address ${CMAKE_MATCH_2})
        if(NOT found MATCHES "^${name}[^\n]*\n[^\n]*src/api/Exports.cpp:[1-9]")
            message(FATAL_ERROR "${name}: ${found}")
        endif()
    endforeach()
endif()
