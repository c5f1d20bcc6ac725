# The Debian packages, made by CPack's DEB generator from the components of
# QzPackaging.cmake. What goes where, and why CPack rather than a debian/
# directory, is in docs/packaging.md; examples/tests/check_debian_packages.sh
# checks the result (layout, stripping, RUNPATH, lintian).
set(QZ_DEB_SOURCE_DIR ${PROJECT_SOURCE_DIR}/packaging/debian)
set(QZ_DEB_VERSION ${PROJECT_VERSION}-${QZ_DEB_REVISION})

# The changelog's newest entry must be the version being built: lintian
# compares the two, and so should anyone reading the package.
file(STRINGS ${QZ_DEB_SOURCE_DIR}/changelog qz_changelog_head LIMIT_COUNT 1)
if(NOT qz_changelog_head MATCHES "^qz-st-intrpr \\(${QZ_DEB_VERSION}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog starts with '${qz_changelog_head}', "
    "but the version being built is ${QZ_DEB_VERSION}: add an entry for it")
endif()

# Every package carries the machine-readable copyright and the changelog in
# its own /usr/share/doc/<package>/.
set(qz_changelog_gz ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz)
add_custom_command(OUTPUT ${qz_changelog_gz}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/debian
  COMMAND gzip -9nc ${QZ_DEB_SOURCE_DIR}/changelog > ${qz_changelog_gz}
  DEPENDS ${QZ_DEB_SOURCE_DIR}/changelog
  COMMENT "Compressing the Debian changelog")
add_custom_target(qz_debian_changelog ALL DEPENDS ${qz_changelog_gz})
foreach(component runtime dev tools)
  string(TOUPPER ${component} upper)
  install(FILES ${QZ_DEB_SOURCE_DIR}/copyright ${qz_changelog_gz}
    DESTINATION ${QZ_DOC_ROOT}/${QZ_DEB_${upper}} COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qz-st-intrpr)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${QZ_DEB_MAINTAINER}")
set(CPACK_PACKAGE_VENDOR "QZ interpreter team")
# Each package's synopsis is the first line of its component's description.
# CPack would put a common summary above it unless the summary is left at
# CPack's own default, so it is set to exactly that.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${QZ_DEB_REVISION})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${QZ_DEB_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://qz-team.example.org/qz-st-intrpr")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# Files owned by root with the usual modes, whoever builds.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Dependencies on system libraries come from dpkg-shlibdeps; the library's
# shlibs file promises ">= this version", so programs built against it
# accept any later 1.x instead of exactly this one.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Where dpkg-shlibdeps finds the library the tools link against.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/qz_st_intrpr)

# The debug information of every binary goes to a -dbgsym package, found by
# build id under /usr/lib/debug/.build-id/.
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${QZ_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Control-program interpreter plug-in for SCADA hosts
A plug-in library that interprets control programs: an assembly-like
instruction language with the elementary data types of IEC 61131-3,
inputs and outputs exchanged with the host, timers, subprograms and
mathematical built-ins. The host loads the program text once and runs it
once per control cycle.
.
This package holds the shared library.")
# Its own shlibs entry is all dpkg-shlibdeps would add for the library's
# users; the library itself needs only what shlibdeps finds.

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${QZ_DEB_DEV})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# Headers and library must be of the same build, so the exact version here
# (Debian's rule for -dev packages); Qt's headers are part of the interface.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${QZ_DEB_RUNTIME} (= ${QZ_DEB_VERSION}), qtbase5-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Control-program interpreter plug-in - development files
A plug-in library that interprets control programs for SCADA hosts.
.
This package holds what a host is built with: the public headers, the
CMake package (find_package(QzStIntrpr)), the pkg-config file
qz_st_intrpr.pc, the host-integration guide and a minimal host.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${QZ_DEB_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
# dpkg-shlibdeps cannot see the library of this same build in any installed
# package, so the tools name it themselves, as shlibs would: this version or later.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${QZ_DEB_RUNTIME} (>= ${QZ_DEB_VERSION})")
if(QZ_DEB_TOOLS_EXTRA_DEPENDS)
  string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", ${QZ_DEB_TOOLS_EXTRA_DEPENDS}")
endif()
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Control-program interpreter plug-in - tools and manual
A plug-in library that interprets control programs for SCADA hosts.
.
This package holds qzrun, which runs a control program cycle by cycle
with inputs from a CSV file and prints what it writes, with its man page,
the language manual and example programs.")

# A package built from a tree configured for another prefix would put the
# library beside, not in, the multiarch directory.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(CPACK_QZ_WRONG_PREFIX "${CMAKE_INSTALL_PREFIX}")
endif()
set(CPACK_QZ_FINISH_SCRIPT ${QZ_DEB_SOURCE_DIR}/finish-packages)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/QzCPackFinish.cmake)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/QzCPackProject.cmake)
include(CPack)
