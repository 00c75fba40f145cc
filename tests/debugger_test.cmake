# What Wine's debugger, which reads the PDB as Windows' debuggers do, shows of a crash inside the library: the function,
# its arguments, and the line that reads the host's variable.
set(source src/session/Session.cpp)
file(READ ${CMAKE_CURRENT_LIST_DIR}/../${source} text)
string(REGEX REPLACE "ToObject[(][*]phAuth[)].*" "" text "${text}")
string(REGEX MATCHALL "\n" lines "${text}")
list(LENGTH lines line)
math(EXPR line "${line} + 1")

set(ENV{WINEDEBUG} fixme-all)
get_filename_component(folder ${PROGRAM} DIRECTORY)
file(WRITE ${folder}/debugger.txt "cont\nbt\nquit\n")
execute_process(COMMAND ${WINE} winedbg --file debugger.txt ${PROGRAM} WORKING_DIRECTORY ${folder}
    OUTPUT_VARIABLE text ERROR_VARIABLE text TIMEOUT 100)
if(NOT text MATCHES "WineDbg starting")
    message("not run: Wine's debugger is missing\n${text}")
    return()
endif()
string(REPLACE "/" "[/\\\\]" source ${source})
# Of a function that link-time optimisation has put into its caller, Wine's debugger does not name the class.
if(NOT text MATCHES "=>0 0x[0-9a-f]+ (CSession::)?CreateAuthHandle[+]0x[0-9a-f]+[(]this=[^,]+, phAuth=0+10[)] [[][^]]*${source}:${line}[]]")
    message(FATAL_ERROR "expected CreateAuthHandle with phAuth=10 at ${source}:${line}, got\n${text}")
endif()
message("${CMAKE_MATCH_0}")
