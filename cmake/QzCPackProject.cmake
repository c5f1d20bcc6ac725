# Read by cpack before it packs: refuses a tree configured for a prefix
# other than /usr, whose library directory is not the multiarch one.
if(CPACK_GENERATOR STREQUAL "DEB" AND CPACK_QZ_WRONG_PREFIX)
  message(FATAL_ERROR "this build tree is configured for ${CPACK_QZ_WRONG_PREFIX}; "
    "Debian packages need -DCMAKE_INSTALL_PREFIX=/usr: run scripts/package")
endif()
