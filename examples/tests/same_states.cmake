# Runs a timer program once under the wall clock, paced in real time, and
# once under simulated time at the same cycle length, and checks that both
# go through the same sequence of output states (repeated rows dropped).
#
#   -DQZRUN=path -DWORKDIR=dir -DPROGRAM=file -DPERIOD=ms -DCYCLES=n
#   -DEXTRA=a|b   further arguments for both runs
cmake_minimum_required(VERSION 3.25)

string(REPLACE "|" ";" extra "${EXTRA}")

function(state_sequence result)
  execute_process(COMMAND ${QZRUN} ${PROGRAM} --csv --cycles ${CYCLES} ${extra} ${ARGN}
    WORKING_DIRECTORY "${WORKDIR}"
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "qzrun ${PROGRAM} ${ARGN} failed (${rc}):\n${err}")
  endif()
  string(REPLACE "\n" ";" rows "${out}")
  list(POP_FRONT rows)  # header
  set(states "")
  set(previous "")
  foreach(row IN LISTS rows)
    if(row STREQUAL "")
      continue()
    endif()
    string(REGEX REPLACE "^[0-9]+," "" state "${row}")
    if(NOT state STREQUAL previous)
      list(APPEND states "${state}")
      set(previous "${state}")
    endif()
  endforeach()
  set(${result} "${states}" PARENT_SCOPE)
endfunction()

state_sequence(wall --period ${PERIOD})
state_sequence(simulated --sim-time ${PERIOD})

list(LENGTH simulated count)
if(count LESS 3)
  message(FATAL_ERROR "the simulated run goes through too few states to compare: ${simulated}")
endif()
if(NOT wall STREQUAL simulated)
  string(REPLACE ";" "  " wall_text "${wall}")
  string(REPLACE ";" "  " simulated_text "${simulated}")
  message(FATAL_ERROR "state sequences differ\n  wall clock: ${wall_text}\n  simulated:  ${simulated_text}")
endif()
message(STATUS "${count} states in the same order under both clocks")
