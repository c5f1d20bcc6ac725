# Installs the project into a scratch prefix and builds the minimal host of
# examples/host against it, once through the CMake package and once through
# pkg-config, and runs both.
#
#   -DBUILD_DIR=project build -DHOST_DIR=examples/host -DWORK=scratch dir
#   -DGENERATOR=... -DCXX=compiler -DCC=C compiler
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nfailed (${rc}):\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

function(check_host_output output)
  set(expected "cycle 1: BUTTON=0 -> LAMP=0 PRESSES=0\ncycle 2: BUTTON=1 -> LAMP=1* PRESSES=1*\ncycle 3: BUTTON=1 -> LAMP=1 PRESSES=1\ncycle 4: BUTTON=0 -> LAMP=1 PRESSES=1\ncycle 5: BUTTON=1 -> LAMP=0* PRESSES=2*\ncycle 6: BUTTON=0 -> LAMP=0 PRESSES=2\n")
  if(NOT output STREQUAL expected)
    message(FATAL_ERROR "the host printed\n${output}\ninstead of\n${expected}")
  endif()
endfunction()

set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(file include/qz_st_intrpr/qz_st_interpretator.h include/qz_st_intrpr/qz_st_result_codes.h
             include/qz_st_intrpr/qz_st_variables.h include/qz_st_intrpr/qz_c.h include/qz_st_intrpr/qz_st_check.h
             bin/qzrun)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()
file(GLOB sonames ${prefix}/lib*/libqz_st_intrpr.so.1 ${prefix}/lib*/*/libqz_st_intrpr.so.1)
if(NOT sonames)
  message(FATAL_ERROR "libqz_st_intrpr.so.1 not installed")
endif()

# Through the CMake package.
run(${CMAKE_COMMAND} -S ${HOST_DIR} -B ${WORK}/cmake-host -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_C_COMPILER=${CC} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK}/cmake-host)
run(${WORK}/cmake-host/minimal_host)
check_host_output("${run_output}")
run(${WORK}/cmake-host/minimal_host_c)
check_host_output("${run_output}")

# The C interface needs neither Qt nor C++: the C host builds with only the
# installed headers and library.
get_filename_component(libdir "${sonames}" DIRECTORY)
run(${CC} -std=c99 -Wall -Wextra -pedantic -Werror -I${prefix}/include/qz_st_intrpr ${HOST_DIR}/minimal_host.c
    -o ${WORK}/plain-c-host -L${libdir} -lqz_st_intrpr -Wl,-rpath,${libdir})
run(${WORK}/plain-c-host)
check_host_output("${run_output}")

# The installed runner finds the installed library.
run(${prefix}/bin/qzrun --version)

# Through pkg-config.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  file(GLOB pcfile ${prefix}/lib*/pkgconfig/qz_st_intrpr.pc ${prefix}/lib*/*/pkgconfig/qz_st_intrpr.pc)
  get_filename_component(pcdir "${pcfile}" DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} "${pcdir}")
  run(${PKG_CONFIG} --cflags --libs qz_st_intrpr)
  string(STRIP "${run_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  get_filename_component(libdir "${sonames}" DIRECTORY)
  run(${CXX} -std=c++17 -Wall -Wextra ${HOST_DIR}/minimal_host.cpp -o ${WORK}/pkg-config-host
      ${flags} -Wl,-rpath,${libdir})
  run(${WORK}/pkg-config-host)
  check_host_output("${run_output}")
  run(${CC} -std=c99 -Wall -Wextra -pedantic ${HOST_DIR}/minimal_host.c -o ${WORK}/pkg-config-host-c
      ${flags} -Wl,-rpath,${libdir})
  run(${WORK}/pkg-config-host-c)
  check_host_output("${run_output}")

  # Without a run path the loader does not find a library outside its
  # cache; LD_LIBRARY_PATH is the stopgap (docs/host-integration.md).
  run(${CXX} -std=c++17 -Wall -Wextra ${HOST_DIR}/minimal_host.cpp -o ${WORK}/no-rpath-host ${flags})
  execute_process(COMMAND ldconfig -p OUTPUT_VARIABLE cache ERROR_QUIET)
  if(cache MATCHES "libqz_st_intrpr\\.so\\.1 ")
    message(STATUS "the library is installed system-wide here: not checking that a host without a run path fails")
  else()
    execute_process(COMMAND ${WORK}/no-rpath-host RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
    if(rc EQUAL 0 OR NOT err MATCHES "libqz_st_intrpr.so.1: cannot open shared object file")
      message(FATAL_ERROR "a host without a run path started (${rc}): ${err}")
    endif()
  endif()
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libdir} ${WORK}/no-rpath-host)
  check_host_output("${run_output}")
  message(STATUS "built and ran the minimal host through the CMake package and pkg-config")
else()
  message(STATUS "built and ran the minimal host through the CMake package (no pkg-config here)")
endif()
