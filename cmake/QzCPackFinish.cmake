# Run by cpack after it has built the packages and before it copies them
# to the output directory (CPACK_POST_BUILD_SCRIPTS).
if(CPACK_GENERATOR STREQUAL "DEB")
  execute_process(COMMAND ${CPACK_QZ_FINISH_SCRIPT} ${CPACK_PACKAGE_FILES}
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "finishing the Debian packages failed (${rc})")
  endif()
endif()
