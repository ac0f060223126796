# SPDX-License-Identifier: MIT
# A build for size makes these sources of a target fast nevertheless.
function(kel_make_fast target)
  string(TOUPPER "${CMAKE_BUILD_TYPE}" build_type)
  if("${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${build_type}}" MATCHES "-Os")
    list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE sources)
    set_source_files_properties(${sources} TARGET_DIRECTORY ${target} PROPERTIES COMPILE_OPTIONS -O3)
  endif()
endfunction()
