# Makes NAME.zip and NAME-tests.zip in BUILD/packages from the two components that are installed, with their SHA-256
# in SHA256SUMS. Each says in VERSION.txt which commit it was made from. With ZIP, the command of that name, the same
# files give the same bytes: sorted, with one time for all, that of SOURCE_DATE_EPOCH, of the commit, or without a
# repository the first that a zip can hold. CMake's own archives store access times as well.
function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endfunction()
function(git output)
    execute_process(COMMAND git ${ARGN} WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}
        OUTPUT_VARIABLE text OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    set(${output} "${text}" PARENT_SCOPE)
endfunction()

# An unpacked archive may lie in a repository of something else: only one that begins here counts.
git(below rev-parse --show-prefix)
git(commit log -1 --format=%H)
if(below STREQUAL "cmake/" AND commit)
    git(time log -1 --format=%ct)
    git(changes status --porcelain --untracked-files=no)
    if(changes)
        string(APPEND commit ", with changes")
    endif()
else()
    set(commit "unknown: not made in a git repository")
    set(time 315532800)  # 1980
endif()
if(NOT "$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
    set(time $ENV{SOURCE_DATE_EPOCH})
endif()
set(ENV{TZ} UTC)  # a zip holds local times

set(packages ${BUILD}/packages)
file(REMOVE_RECURSE ${packages})
set(sums "")
foreach(component library tests)
    set(name ${NAME})
    if(component STREQUAL tests)
        string(APPEND name -tests)
    endif()
    run(${CMAKE_COMMAND} --install ${BUILD} --component ${component} --prefix ${packages}/${name})
    file(WRITE ${packages}/${name}/VERSION.txt "${NAME}\ncommit ${commit}\n")
    file(GLOB_RECURSE files RELATIVE ${packages} ${packages}/${name}/*)
    list(SORT files)
    list(JOIN files "\n" list)
    file(WRITE ${packages}/list "${list}\n")
    if(ZIP)
        execute_process(COMMAND xargs -d "\\n" touch -d @${time} INPUT_FILE list
            WORKING_DIRECTORY ${packages} COMMAND_ERROR_IS_FATAL ANY)
        set(pack ${ZIP} -q -X -9 ${name}.zip -@)
    else()
        set(pack ${CMAKE_COMMAND} -E tar cf ${name}.zip --format=zip --files-from=list)
    endif()
    execute_process(COMMAND ${pack} INPUT_FILE list WORKING_DIRECTORY ${packages} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${packages}/list ${packages}/${name})
    file(SHA256 ${packages}/${name}.zip sum)
    string(APPEND sums "${sum}  ${name}.zip\n")
endforeach()
file(WRITE ${packages}/SHA256SUMS "${sums}")
message("${sums}")
