# Man pages of the tools, made at build time from each built tool's own
# --help and --version by help2man, so the page can never drift from the
# options the program really takes. Without help2man the tools still build
# and install, only without their pages (scripts/install-deps installs it).
find_program(QZ_HELP2MAN help2man)
find_program(QZ_GZIP gzip)
if(NOT QZ_HELP2MAN OR NOT QZ_GZIP)
  message(STATUS "help2man or gzip not found: the tools are installed without man pages")
endif()

# qz_man_page(TARGET "one-line description"): TARGET.1.gz into man1.
function(qz_man_page target description)
  # Sanitizer builds are for running tests, not for installing, and a
  # sanitizer's report would end up in the page.
  if(NOT QZ_HELP2MAN OR NOT QZ_GZIP OR QZ_SANITIZE OR QZ_TSAN)
    return()
  endif()
  set(dir ${PROJECT_BINARY_DIR}/man)
  set(page ${dir}/${target}.1)
  # gzip -n and a fixed date keep the page byte-for-byte reproducible.
  add_custom_command(OUTPUT ${page}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${dir}
    COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C.UTF-8 SOURCE_DATE_EPOCH=${QZ_RELEASE_EPOCH}
            ${QZ_HELP2MAN} --no-info --no-discard-stderr --section=1 "--name=${description}"
            "--source=QZ interpreter team" --output=${page} $<TARGET_FILE:${target}>
    COMMAND ${QZ_GZIP} -9nf ${page}
    DEPENDS ${target}
    COMMENT "Making the man page of ${target} from its --help"
    VERBATIM)
  add_custom_target(${target}_man ALL DEPENDS ${page}.gz)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endfunction()
