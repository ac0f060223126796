# SPDX-License-Identifier: MIT
# Run by CPack before it packs: manual pages and changelogs are compressed in Debian's packages, without name and date.
file(GLOB_RECURSE texts ${CPACK_TEMPORARY_DIRECTORY}/*.1 ${CPACK_TEMPORARY_DIRECTORY}/changelog)
foreach(text IN LISTS texts)
  execute_process(COMMAND gzip -9nf ${text} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
