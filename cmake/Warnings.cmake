# SPDX-License-Identifier: MIT
# Every target of this tree links kel_warnings privately: the warnings are ours, not our users'.
add_library(kel_warnings INTERFACE)
target_compile_options(kel_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wcast-align -Wformat=2 -Wimplicit-fallthrough
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(KEL_HTTP_WERROR)
  target_compile_options(kel_warnings INTERFACE -Werror)
endif()
