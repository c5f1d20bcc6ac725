# Builds the Debian package into a scratch directory and checks what it holds.
#
#   -DBUILD_DIR=project build -DWORK=scratch dir
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND cpack -G DEB --config ${BUILD_DIR}/CPackConfig.cmake -B ${WORK}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cpack failed (${rc}):\n${out}\n${err}")
endif()
file(GLOB package ${WORK}/*.deb)
if(NOT package)
  message(FATAL_ERROR "cpack made no .deb:\n${out}")
endif()
execute_process(COMMAND dpkg-deb --contents ${package} OUTPUT_VARIABLE contents RESULT_VARIABLE rc)
execute_process(COMMAND dpkg-deb --field ${package} Package Depends OUTPUT_VARIABLE fields)
foreach(path usr/lib/libqz_st_intrpr.so.1.0.0 usr/lib/libqz_st_intrpr.so.1 usr/bin/qzrun
             usr/include/qz_st_intrpr/qz_st_interpretator.h usr/lib/cmake/QzStIntrpr/QzStIntrprConfig.cmake
             usr/lib/pkgconfig/qz_st_intrpr.pc)
  string(FIND "${contents}" "./${path}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${package} lacks ${path}:\n${contents}")
  endif()
endforeach()
if(NOT fields MATCHES "Package: qz-st-intrpr" OR NOT fields MATCHES "libqt5core5")
  message(FATAL_ERROR "unexpected control fields:\n${fields}")
endif()
message(STATUS "${package} holds the library, headers, packages and qzrun")
