# SPDX-License-Identifier: MIT
# Run by CPack before it packs: Debian wants a copyright and a changelog in each package, and texts of some kinds compressed,
# without name and date.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} COMPONENT)
  set(documents ${CPACK_INSTALL_PREFIX}/share/doc/${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME})
  file(COPY ${CPACK_KEL_DOCUMENTS} DESTINATION ${CPACK_TEMPORARY_DIRECTORY}/${component}${documents} NO_SOURCE_PERMISSIONS)
endforeach()
file(GLOB_RECURSE texts ${CPACK_TEMPORARY_DIRECTORY}/*.1 ${CPACK_TEMPORARY_DIRECTORY}/changelog)
foreach(text IN LISTS texts)
  execute_process(COMMAND gzip -9nf ${text} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
