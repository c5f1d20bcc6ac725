# Installation and packaging.
#
# `cmake --install` puts the library with its SONAME, the public headers
# under include/qz_st_intrpr/, the CMake package (find_package(QzStIntrpr)
# -> QzStIntrpr::qz_st_intrpr), the pkg-config file (qz_st_intrpr.pc), the
# tools, their man pages and the documents under the prefix.
#
# Every install rule belongs to one of three components, and `cpack -G DEB`
# makes one Debian package of each (docs/packaging.md explains the split):
#
#   runtime -> libqz-st-intrpr1      the shared library and its SONAME link
#   dev     -> libqz-st-intrpr-dev   headers, CMake and pkg-config files, the .so link
#   tools   -> qz-st-intrpr-tools    qzrun, its man page, the manual and examples
#
# plus libqz-st-intrpr1-dbgsym and qz-st-intrpr-tools-dbgsym with the debug
# information split off the stripped binaries. Packages are built from a
# tree configured with CMAKE_INSTALL_PREFIX=/usr, so that the library lands
# in the multiarch directory: scripts/package does that.
include(CMakePackageConfigHelpers)

set(QZ_DEB_RUNTIME libqz-st-intrpr${PROJECT_VERSION_MAJOR})
set(QZ_DEB_DEV libqz-st-intrpr-dev)
set(QZ_DEB_TOOLS qz-st-intrpr-tools)
set(QZ_DEB_REVISION 1)
set(QZ_DEB_MAINTAINER "QZ interpreter team <qz-team@example.org>")

# The release date in the changelog dates the man pages, so that a rebuild
# of the same release gives the same files.
file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/debian/changelog qz_trailer REGEX "^ -- " LIMIT_COUNT 1)
string(REGEX REPLACE "^.*>  " "" qz_release_date "${qz_trailer}")
execute_process(COMMAND date -d "${qz_release_date}" +%s
  OUTPUT_VARIABLE QZ_RELEASE_EPOCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT QZ_RELEASE_EPOCH MATCHES "^[0-9]+$")
  string(TIMESTAMP QZ_RELEASE_EPOCH "%s" UTC)
endif()

set(QZ_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QzStIntrpr)
set(QZ_DOC_ROOT ${CMAKE_INSTALL_DATAROOTDIR}/doc)

# ---- runtime: the library ----
install(TARGETS qz_st_intrpr EXPORT QzStIntrprTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)

# ---- dev: what a host compiles and links against ----
install(FILES
    ${PROJECT_SOURCE_DIR}/include/qz_st_interpretator.h
    ${PROJECT_SOURCE_DIR}/include/qz_st_interface.h
    ${PROJECT_SOURCE_DIR}/include/qz_st_result_codes.h
    ${PROJECT_SOURCE_DIR}/include/qz_st_variables.h
    ${PROJECT_SOURCE_DIR}/include/qz_c.h
    ${PROJECT_SOURCE_DIR}/include/qz_st_check.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qz_st_intrpr COMPONENT dev)
install(EXPORT QzStIntrprTargets
  NAMESPACE QzStIntrpr::
  FILE QzStIntrprTargets.cmake
  DESTINATION ${QZ_INSTALL_CMAKEDIR} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/QzStIntrprConfig.cmake.in
  ${PROJECT_BINARY_DIR}/QzStIntrprConfig.cmake
  INSTALL_DESTINATION ${QZ_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QzStIntrprConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/QzStIntrprConfig.cmake
    ${PROJECT_BINARY_DIR}/QzStIntrprConfigVersion.cmake
  DESTINATION ${QZ_INSTALL_CMAKEDIR} COMPONENT dev)

# The .pc file finds its prefix from where it lies, so an installed tree can
# be moved (and installed with --prefix) without editing it.
file(RELATIVE_PATH QZ_PC_RELATIVE_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" QZ_PC_RELATIVE_PREFIX "${QZ_PC_RELATIVE_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qz_st_intrpr.pc.in ${PROJECT_BINARY_DIR}/qz_st_intrpr.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qz_st_intrpr.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/libqz-st-intrpr-dev.lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides RENAME ${QZ_DEB_DEV} COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/docs/host-integration.md
  DESTINATION ${QZ_DOC_ROOT}/${QZ_DEB_DEV} COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/host/ DESTINATION ${QZ_DOC_ROOT}/${QZ_DEB_DEV}/examples/host
  COMPONENT dev)

# ---- tools: the runner, its man page, the manual and the examples ----
if(TARGET qzrun)
  install(TARGETS qzrun RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  # qzrun finds the library through $ORIGIN/../lib... when installed under a
  # private prefix; in a system library directory the loader finds it
  # unaided, and Debian forbids a RUNPATH there.
  set(qz_system_libdirs ${CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES} ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES})
  list(FIND qz_system_libdirs "${CMAKE_INSTALL_FULL_LIBDIR}" qz_libdir_is_system)
  if(NOT qz_libdir_is_system EQUAL -1)
    set_target_properties(qzrun PROPERTIES INSTALL_RPATH "")
  endif()
  include(${CMAKE_CURRENT_LIST_DIR}/QzManPages.cmake)
  qz_man_page(qzrun "run a control program cycle by cycle and print what it writes")
endif()

# qzls and the editor files install from tools/qzls/CMakeLists.txt, with
# COMPONENT tools (qzls has no --help for a man page yet).
# >>> Further tools go here, each rule with COMPONENT tools, so that they
# >>> land in the qz-st-intrpr-tools package:
# >>>   the language server:  install(TARGETS qzls RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
# >>>                         qz_man_page(qzls "...")   (from its --help, see QzManPages.cmake)
# >>>   editor support:       install(DIRECTORY ${PROJECT_SOURCE_DIR}/editors/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qz-st-intrpr/editors COMPONENT tools)
# >>> Binaries in the tools component get stripped and their debug
# >>> information moved to qz-st-intrpr-tools-dbgsym without further work.
# The Python package qzst: pure Python over the C interface, so it goes where
# Debian's python3 finds modules, and finds the library through the loader.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/qzst DESTINATION lib/python3/dist-packages COMPONENT tools
  FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
set(QZ_DEB_TOOLS_EXTRA_DEPENDS "python3")

set(QZ_TOOLS_DOCDIR ${QZ_DOC_ROOT}/${QZ_DEB_TOOLS})
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${QZ_TOOLS_DOCDIR} COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${QZ_TOOLS_DOCDIR} COMPONENT tools
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png" PATTERN "host-integration.md" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${QZ_TOOLS_DOCDIR}/examples COMPONENT tools
  FILES_MATCHING PATTERN "*.qz" PATTERN "*.csv" PATTERN "*.md"
  PATTERN "tests" EXCLUDE PATTERN "host" EXCLUDE)

include(${CMAKE_CURRENT_LIST_DIR}/QzDebian.cmake)
