# Checks that the manual's table of result codes lists every code of
# include/qz_st_result_codes.h, with its enumerator, and no other code.
#
#   -DHEADER=path/to/qz_st_result_codes.h -DMANUAL=path/to/language.md
cmake_minimum_required(VERSION 3.25)

# The table's lines end in backslashes, which would escape list separators
# if the file were read line by line.
file(READ "${HEADER}" header)
string(REGEX MATCHALL "X\\(rc[A-Za-z]+, *[0-9]+," entries "${header}")
file(STRINGS "${MANUAL}" rows REGEX "^\\| *[0-9]+ *\\|")

set(problems "")
set(codes "")
foreach(entry IN LISTS entries)
  string(REGEX MATCH "X\\((rc[A-Za-z]+), *([0-9]+)," _ "${entry}")
  set(name "${CMAKE_MATCH_1}")
  set(code "${CMAKE_MATCH_2}")
  list(APPEND codes "${code}")
  set(found FALSE)
  foreach(row IN LISTS rows)
    if(row MATCHES "^\\| *${code} *\\|" AND row MATCHES "`${name}`")
      set(found TRUE)
    endif()
  endforeach()
  if(NOT found)
    string(APPEND problems "code ${code} (${name}) has no row in the table\n")
  endif()
endforeach()
foreach(row IN LISTS rows)
  string(REGEX MATCH "^\\| *([0-9]+) *\\|" _ "${row}")
  if(NOT CMAKE_MATCH_1 IN_LIST codes)
    string(APPEND problems "the table lists code ${CMAKE_MATCH_1}, which the library does not have\n")
  endif()
endforeach()
list(LENGTH codes count)
if(count LESS 40)
  string(APPEND problems "found only ${count} codes in ${HEADER}\n")
endif()
if(problems)
  message(FATAL_ERROR "${MANUAL}:\n${problems}")
endif()
message(STATUS "all ${count} result codes are in the manual")
