# Installs headers, libraries, module, program, and the CMake and pkg-config files.
include(CMakePackageConfigHelpers)
include(PublicHeaders)

set(ORVIK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orvik-image)
set(ORVIK_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/orvik/modules)

# An installed tree is relocatable.
set_target_properties(orvik_core orvik_image orvik_host PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(image_module PROPERTIES INSTALL_RPATH "$ORIGIN/../..")
set_target_properties(orvik PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

install(TARGETS orvik_core orvik_image orvik_host EXPORT orvik-image-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS orvik RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS image_module LIBRARY DESTINATION ${ORVIK_MODULE_DIR})
install(FILES ${ORVIK_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvik)
install(FILES host/man/orvik.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES host/completion/orvik.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME orvik)
install(FILES host/completion/_orvik DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(EXPORT orvik-image-targets NAMESPACE orvik:: DESTINATION ${ORVIK_CMAKE_DIR})
configure_package_config_file(cmake/orvik-image-config.cmake.in ${CMAKE_BINARY_DIR}/orvik-image-config.cmake
                              INSTALL_DESTINATION ${ORVIK_CMAKE_DIR}
                              PATH_VARS ORVIK_MODULE_DIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/orvik-image-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/orvik-image-config.cmake ${CMAKE_BINARY_DIR}/orvik-image-config-version.cmake
        DESTINATION ${ORVIK_CMAKE_DIR})
# Its prefix is relative to the file, for relocation.
file(RELATIVE_PATH ORVIK_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/orvik-image.pc.in ${CMAKE_BINARY_DIR}/orvik-image.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/orvik-image.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
