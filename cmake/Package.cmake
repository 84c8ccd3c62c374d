# `cmake --preset dll && cpack` makes one ZIP of all that a front end's author needs, with a checksum of each file.
include(CMakePackageConfigHelpers)

set(KK_PACKAGE_BIN bin)
set(KK_PACKAGE_LIB lib)
set(KK_PACKAGE_INCLUDE include)
set(config_folder ${KK_PACKAGE_LIB}/cmake/KestrelkitCore)

install(TARGETS KestrelkitCore kkctl
    RUNTIME DESTINATION ${KK_PACKAGE_BIN}
    ARCHIVE DESTINATION ${KK_PACKAGE_LIB})
install(FILES ${CMAKE_BINARY_DIR}/KestrelkitCore.pdb DESTINATION ${KK_PACKAGE_BIN})
# LLD writes what Microsoft's linker reads; only the name under which it is looked for differs.
install(FILES $<TARGET_LINKER_FILE:KestrelkitCore> DESTINATION ${KK_PACKAGE_LIB} RENAME KestrelkitCore.lib)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${KK_PACKAGE_INCLUDE})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KestrelkitCoreConfig.cmake.in KestrelkitCoreConfig.cmake
    INSTALL_DESTINATION ${config_folder}
    PATH_VARS KK_PACKAGE_BIN KK_PACKAGE_LIB KK_PACKAGE_INCLUDE)
write_basic_package_version_file(KestrelkitCoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KestrelkitCoreConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/KestrelkitCoreConfigVersion.cmake
    DESTINATION ${config_folder})

install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md DESTINATION .)
# All documents, as the guide's links lead to the others.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION docs)
install(FILES ${PROJECT_SOURCE_DIR}/tools/kkctl/README.md DESTINATION docs RENAME kkctl.md)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION examples PATTERN __pycache__ EXCLUDE)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME KestrelkitCore)
set(CPACK_PACKAGE_FILE_NAME KestrelkitCore-${PROJECT_VERSION}-x64)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR})
# Ninja knows no step before an installation, so the build is one of ours.
set(CPACK_INSTALL_COMMANDS "\"${CMAKE_COMMAND}\" --build \"${CMAKE_BINARY_DIR}\"")
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/PackageChecksums.cmake)
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
