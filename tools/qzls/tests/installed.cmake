# Installs the project into a scratch prefix and checks that the language
# server and the editor files are where docs/editors.md says, and that the
# installed server runs.
#
#   -DBUILD_DIR=project build -DWORK=scratch dir
cmake_minimum_required(VERSION 3.25)

set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed (${rc}):\n${err}")
endif()

foreach(file bin/qzls
    share/qz_st_intrpr/editors/vscode/package.json
    share/qz_st_intrpr/editors/vscode/extension.js
    share/qz_st_intrpr/editors/vscode/language-configuration.json
    share/qz_st_intrpr/editors/vscode/syntaxes/qz.tmLanguage.json
    share/qz_st_intrpr/editors/vim/syntax/qz.vim
    share/qz_st_intrpr/editors/vim/ftdetect/qz.vim)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

execute_process(COMMAND ${prefix}/bin/qzls --version RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc EQUAL 0 OR NOT out STREQUAL "qzls ${VERSION}\n")
  message(FATAL_ERROR "installed qzls --version gave ${rc}: '${out}'")
endif()
file(REMOVE_RECURSE ${WORK})
