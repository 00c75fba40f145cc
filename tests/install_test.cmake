# Installs into an empty folder, compares what is there with what is promised, and has the consumer project
# built and run against it.
file(REMOVE_RECURSE ${WORK})
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
file(GLOB_RECURSE installed RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
list(SORT installed)
string(REPLACE "," ";" expected "${FILES}")
if(NOT installed STREQUAL expected)
    message(FATAL_ERROR "installed: ${installed}\nexpected: ${expected}")
endif()
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/consumer -B ${WORK}/build -G Ninja
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DTarnex_3_DIR=${WORK}/prefix/lib/cmake/Tarnex_3)
run(${CMAKE_COMMAND} --build ${WORK}/build)
