# What `cmake --install` puts where, and the packages that cpack makes of it. The installed tree can be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS vornmake vornmake_static EXPORT vornmakeTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES public/vornmake.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR}) # where the links of README.md lead

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vornmake)
install(EXPORT vornmakeTargets NAMESPACE vornmake:: DESTINATION ${package_dir})
configure_package_config_file(cmake/vornmakeConfig.cmake.in ${CMAKE_BINARY_DIR}/vornmakeConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vornmakeConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vornmakeConfig.cmake ${CMAKE_BINARY_DIR}/vornmakeConfigVersion.cmake
    DESTINATION ${package_dir})
configure_file(cmake/vornmake.pc.in ${CMAKE_BINARY_DIR}/vornmake.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vornmake.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(VORN_TOOLS)
    set_target_properties(vorn PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    install(TARGETS vorn RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    if(NOT VORN_SANITIZE)
        install(DIRECTORY ${CMAKE_BINARY_DIR}/manual/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
        install(FILES ${CMAKE_BINARY_DIR}/manual/completions/vorn.bash RENAME vorn
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
        # Below /usr itself, Debian's zsh looks into a folder of another name.
        install(CODE "
            set(folder site-functions)
            if(EXISTS /etc/debian_version AND CMAKE_INSTALL_PREFIX MATCHES \"/usr\$\")
                set(folder vendor-completions)
            endif()
            file(INSTALL \"${CMAKE_BINARY_DIR}/manual/completions/_vorn\"
                DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/zsh/\${folder}\")")
    endif()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vornmake)
set(CPACK_PACKAGE_CONTACT "The vornmake authors <authors@vornmake.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Encoder of the Vorn movie format: library, headers and program")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
include(CPack)
