# What "cmake --install" lays out and cpack puts into the zip: one DLL, what links to it, and one header.
include(CMakePackageConfigHelpers)

set(config_folder lib/cmake/Tarnex_3)
install(TARGETS Tarnex_3 EXPORT Tarnex_3Targets
    RUNTIME DESTINATION bin
    ARCHIVE DESTINATION lib)
install(FILES include/tarnex_3.h DESTINATION include)
install(FILES src/api/Tarnex_3.def DESTINATION lib)
install(FILES README.md DESTINATION .)
if(MSVC)
    install(FILES $<TARGET_PDB_FILE:Tarnex_3> DESTINATION bin)
else()
    install(FILES $<TARGET_FILE:Tarnex_3>.debug DESTINATION bin OPTIONAL)
    install(FILES ${PROJECT_BINARY_DIR}/lib/Tarnex_3.lib DESTINATION lib)
endif()

install(EXPORT Tarnex_3Targets NAMESPACE Tarnex_3:: DESTINATION ${config_folder})
configure_package_config_file(cmake/Tarnex_3Config.cmake.in ${PROJECT_BINARY_DIR}/Tarnex_3Config.cmake
    INSTALL_DESTINATION ${config_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/Tarnex_3ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/Tarnex_3Config.cmake
    ${PROJECT_BINARY_DIR}/Tarnex_3ConfigVersion.cmake
    DESTINATION ${config_folder})

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME Tarnex_3-${PROJECT_VERSION}-win64)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
