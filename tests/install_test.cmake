# Installs into an empty folder, compares what is there with what is promised, has the consumer project built and run
# against it, and compares the README's host with the one that is installed.
file(REMOVE_RECURSE ${WORK})
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
file(GLOB_RECURSE installed RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
list(SORT installed)
string(REGEX REPLACE ",+" ";" expected "${FILES}")
if(NOT installed STREQUAL expected)
    message(FATAL_ERROR "installed: ${installed}\nexpected: ${expected}")
endif()
# Every package that is linked into the DLL is named with its version and has its terms in the notices.
function(expect_notices file)
    file(READ ${file} notices)
    foreach(word ${ARGN} "libspdlog-dev [0-9]" "libfmt-dev [0-9]" "mingw[^\n]* [0-9]" "Gabi Melman" "Victor Zverovich"
                 "GCC Runtime Library Exception|GCC RUNTIME LIBRARY EXCEPTION" "winpthreads")
        if(NOT notices MATCHES "${word}")
            message(FATAL_ERROR "${file} lacks ${word}")
        endif()
    endforeach()
endfunction()
if(EXISTS ${WORK}/prefix/THIRD-PARTY-NOTICES.txt)
    expect_notices(${WORK}/prefix/THIRD-PARTY-NOTICES.txt)
    expect_notices(${BUILD}/tests/THIRD-PARTY-NOTICES.txt "\ngoogletest [0-9]" "Google Inc" ${GO})
endif()

file(READ ${CMAKE_CURRENT_LIST_DIR}/../README.md readme)
file(READ ${WORK}/prefix/examples/host.c host)
string(FIND "${readme}" "```c\n${host}```\n" found)
if(found EQUAL -1)
    message(FATAL_ERROR "README.md does not show examples/host.c as it is")
endif()

set(ENV{PKG_CONFIG_LIBDIR} ${WORK}/prefix/lib/pkgconfig)
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/consumer -B ${WORK}/build -G ${GENERATOR}
    -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM} -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}
    -DCMAKE_C_COMPILER=${COMPILER} -DCMAKE_CROSSCOMPILING_EMULATOR=${EMULATOR}
    -DTarnex_3_DIR=${WORK}/prefix/lib/cmake/Tarnex_3 -DEXAMPLES=${WORK}/prefix/examples)
run(${CMAKE_COMMAND} --build ${WORK}/build)
