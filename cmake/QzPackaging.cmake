# Installation and packaging: the library with its SONAME, the public
# headers under include/qz_st_intrpr/, the runner, a CMake package
# (find_package(QzStIntrpr) -> QzStIntrpr::qz_st_intrpr), a pkg-config file
# (qz_st_intrpr.pc), the documents and examples, and a Debian package
# (cpack -G DEB).
include(CMakePackageConfigHelpers)

set(QZ_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QzStIntrpr)

install(TARGETS qz_st_intrpr EXPORT QzStIntrprTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES
    ${PROJECT_SOURCE_DIR}/include/qz_st_interpretator.h
    ${PROJECT_SOURCE_DIR}/include/qz_st_interface.h
    ${PROJECT_SOURCE_DIR}/include/qz_st_result_codes.h
    ${PROJECT_SOURCE_DIR}/include/qz_st_variables.h
    ${PROJECT_SOURCE_DIR}/include/qz_c.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qz_st_intrpr)
if(TARGET qzrun)
  install(TARGETS qzrun RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT QzStIntrprTargets
  NAMESPACE QzStIntrpr::
  FILE QzStIntrprTargets.cmake
  DESTINATION ${QZ_INSTALL_CMAKEDIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QzStIntrprConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QzStIntrprConfig.cmake
  INSTALL_DESTINATION ${QZ_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QzStIntrprConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/QzStIntrprConfig.cmake
    ${PROJECT_BINARY_DIR}/QzStIntrprConfigVersion.cmake
  DESTINATION ${QZ_INSTALL_CMAKEDIR})

# The .pc file finds its prefix from where it lies, so an installed tree can
# be moved (and installed with --prefix) without editing it.
file(RELATIVE_PATH QZ_PC_RELATIVE_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" QZ_PC_RELATIVE_PREFIX "${QZ_PC_RELATIVE_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qz_st_intrpr.pc.in ${PROJECT_BINARY_DIR}/qz_st_intrpr.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qz_st_intrpr.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.md")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
  FILES_MATCHING PATTERN "*.qz" PATTERN "*.csv" PATTERN "*.md" PATTERN "*.cpp" PATTERN "*.c"
                 PATTERN "host/CMakeLists.txt"
  PATTERN "tests" EXCLUDE)

# ---- Debian package ----
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qz-st-intrpr)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
  "A plug-in library that interprets control programs for SCADA hosts, with its public headers, CMake and pkg-config files, and the qzrun command-line runner.")
set(CPACK_PACKAGE_CONTACT "QzStIntrpr maintainers <qz-st-intrpr@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# Exact dependencies and a shlibs file need dpkg-shlibdeps (dpkg-dev) and
# file(1); without them the package names its dependencies itself.
find_program(QZ_DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(QZ_FILE_COMMAND file)
if(QZ_DPKG_SHLIBDEPS AND QZ_FILE_COMMAND)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt5core5a (>= 5.12) | libqt5core5t64, libstdc++6, libc6")
endif()
include(CPack)
