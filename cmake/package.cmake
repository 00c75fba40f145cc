# What "cmake --install" lays out, and with it "find_package" and pkg-config: one DLL with its symbols, what links to it,
# one header, and the examples. The component "tests", installed only when named, is the kit that tries the DLL.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME library)

set(config_folder lib/cmake/Tarnex_3)
install(TARGETS Tarnex_3 EXPORT Tarnex_3Targets
    RUNTIME DESTINATION bin
    ARCHIVE DESTINATION lib)
install(FILES include/tarnex_3.h DESTINATION include)
install(FILES src/api/Tarnex_3.def DESTINATION lib)
install(FILES examples/demo.c examples/host.c examples/loader.cpp examples/tarnex_loader.h examples/threads.cpp
    DESTINATION examples)
install(FILES examples/go/main.go DESTINATION examples/go)
if(MSVC)
    install(FILES $<TARGET_PDB_FILE:Tarnex_3> DESTINATION bin)
else()
    if(TARNEX_PDB)
        install(FILES $<TARGET_FILE_DIR:Tarnex_3>/Tarnex_3.pdb DESTINATION bin)
    else()
        install(FILES $<TARGET_FILE:Tarnex_3>.debug DESTINATION bin)
    endif()
endif()
if(TARNEX_LLVM_DLLTOOL)
    install(FILES ${msvc_library} DESTINATION lib)
endif()

# The manual is the README of those who have the zip.
install(FILES docs/manual.md DESTINATION . RENAME README.md)

# The notices of what is linked into the DLL, from the copyright files of the packages that it came from: Debian's, which
# the project's own toolchains name, or vcpkg's.
set(notice_sources "")
if(DEFINED VCPKG_INSTALLED_DIR)
    set(ports ${VCPKG_INSTALLED_DIR}/${VCPKG_TARGET_TRIPLET}/share)
    set(notice_sources ${ports}/fmt ${ports}/spdlog)
elseif(DEFINED TARNEX_DEBIAN_GCC)
    set(notice_sources /usr/include/spdlog/version.h /usr/include/fmt/core.h)
    foreach(library libstdc++.a libmingw32.a libwinpthread.a)
        execute_process(COMMAND ${TARNEX_DEBIAN_GCC} -print-file-name=${library}
            OUTPUT_VARIABLE file OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        list(APPEND notice_sources ${file})
    endforeach()
endif()

# Has the notices of what the subject contains, found by these files, written to THIRD-PARTY-NOTICES.txt.
function(tarnex_notices target subject)
    set(notices ${CMAKE_CURRENT_BINARY_DIR}/THIRD-PARTY-NOTICES.txt)
    set(compiler "${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
    if(NOT MSVC)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} --version OUTPUT_VARIABLE compiler COMMAND_ERROR_IS_FATAL ANY)
        string(REGEX REPLACE "\n.*" "" compiler "${compiler}")
    endif()
    add_custom_command(OUTPUT ${notices}
        COMMAND ${CMAKE_COMMAND} "-DSUBJECT=${subject}" "-DCOMPILER=${compiler}" "-DSOURCES=${ARGN}" -DOUTPUT=${notices}
                -P ${PROJECT_SOURCE_DIR}/cmake/notices.cmake
        DEPENDS ${PROJECT_SOURCE_DIR}/cmake/notices.cmake
        VERBATIM)
    add_custom_target(${target} ALL DEPENDS ${notices})
endfunction()
if(notice_sources)
    tarnex_notices(notices Tarnex_3.dll ${notice_sources})
    install(FILES ${PROJECT_BINARY_DIR}/THIRD-PARTY-NOTICES.txt DESTINATION .)
else()
    message(STATUS "Without THIRD-PARTY-NOTICES.txt and the zips: they need the copyright files of Debian's packages, "
        "which only the project's own toolchains know (cmake --list-presets), or vcpkg's")
endif()

install(EXPORT Tarnex_3Targets NAMESPACE Tarnex_3:: DESTINATION ${config_folder})
configure_package_config_file(cmake/Tarnex_3Config.cmake.in ${PROJECT_BINARY_DIR}/Tarnex_3Config.cmake
    INSTALL_DESTINATION ${config_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/Tarnex_3ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/Tarnex_3Config.cmake
    ${PROJECT_BINARY_DIR}/Tarnex_3ConfigVersion.cmake
    DESTINATION ${config_folder})
configure_file(cmake/tarnex-3.pc.in ${PROJECT_BINARY_DIR}/tarnex-3.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tarnex-3.pc DESTINATION lib/pkgconfig)

# The two zips: what ships, and the kit. What is released has the plain name, clang's for the universal C runtime, and
# "-msvcrt", GCC's for the other one.
if(NOT notice_sources)
    return()
endif()
set(package Tarnex_3-${PROJECT_VERSION}-win64)
if(MSVC)
    string(APPEND package -msvc)
elseif(TARNEX_UCRT)
    if(NOT TARNEX_PDB)
        string(APPEND package -gcc)
    endif()
else()
    string(APPEND package -msvcrt)
    if(TARNEX_PDB)
        string(APPEND package -clang)
    endif()
endif()
if(NOT MSVC)
    find_program(TARNEX_ZIP zip)
endif()
add_custom_target(zips
    COMMAND ${CMAKE_COMMAND} -DBUILD=${PROJECT_BINARY_DIR} -DNAME=${package} "-DZIP=$<$<BOOL:${TARNEX_ZIP}>:${TARNEX_ZIP}>"
            -P ${PROJECT_SOURCE_DIR}/cmake/zips.cmake
    VERBATIM)
add_dependencies(zips Tarnex_3 notices)
if(TARGET msvc_import_library)
    add_dependencies(zips msvc_import_library)
endif()
