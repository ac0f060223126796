# SPDX-License-Identifier: MIT
# cmake -D BUILD=FOLDER -D WORK=FOLDER -P Runtime.cmake: installs BUILD's component runtime into WORK/runtime, and fails when
# that is more than shared libraries.
file(REMOVE_RECURSE ${WORK}/runtime)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/runtime --component runtime
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE files ${WORK}/runtime/*)
list(FILTER files EXCLUDE REGEX "/libkel-(http|platform)\\.so\\.[0-9.]+$")
if(files)
  message(FATAL_ERROR "The component runtime holds ${files}")
endif()
