# SPDX-License-Identifier: MIT
# cmake -D BUILD=FOLDER -D WORK=FOLDER -P Install.cmake: installs BUILD into WORK/made and moves that to WORK/moved.
file(REMOVE_RECURSE ${WORK}/made ${WORK}/moved)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/made OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${WORK}/made ${WORK}/moved)

# What is relocatable names neither the place it was made in nor the one it was installed to.
file(GLOB_RECURSE texts ${WORK}/moved/*.cmake ${WORK}/moved/*.pc ${WORK}/moved/*.h)
foreach(text IN LISTS texts)
  file(STRINGS ${text} lines REGEX "${BUILD}|${WORK}")
  if(lines)
    message(FATAL_ERROR "${text} names a folder of the build: ${lines}")
  endif()
endforeach()
