# SPDX-License-Identifier: MIT
# What `cmake --install` lays down, in three components: runtime, dev and tools.
include(CMakePackageConfigHelpers)

# A prefix of one's own may be moved as a whole. In /usr the system finds its libraries without help.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  file(RELATIVE_PATH folder ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(CMAKE_INSTALL_RPATH $ORIGIN $ORIGIN/${folder})
  unset(folder)
endif()

# Installs the template PACKAGE.pc.in of the calling folder as the pkg-config module `module`, which links `libs`.
function(kel_install_module package module libs)
  file(RELATIVE_PATH prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" prefix ${prefix})
  configure_file(${package}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${module}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endfunction()

# Installs a library as the CMake package `package` and as its pkg-config modules, from the templates PACKAGE-config.cmake.in
# and PACKAGE.pc.in of the calling folder. Further arguments are its targets. One whose name ends with _static goes into the
# package's component "static", and into the module PACKAGE-static.
function(kel_install_package package)
  set(destination ${CMAKE_INSTALL_LIBDIR}/cmake/${package})
  set(archives ${ARGN})
  list(FILTER archives INCLUDE REGEX "_static$")
  list(FILTER ARGN EXCLUDE REGEX "_static$")
  install(TARGETS ${ARGN} EXPORT ${package}-targets
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
    ARCHIVE COMPONENT dev
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${package} COMPONENT dev)
  install(EXPORT ${package}-targets NAMESPACE kel:: DESTINATION ${destination} COMPONENT dev)
  if(archives)
    install(TARGETS ${archives} EXPORT ${package}-static-targets ARCHIVE COMPONENT dev)
    install(EXPORT ${package}-static-targets NAMESPACE kel:: DESTINATION ${destination} COMPONENT dev)
  endif()

  configure_package_config_file(${package}-config.cmake.in ${PROJECT_BINARY_DIR}/${package}-config.cmake
    INSTALL_DESTINATION ${destination} NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}-config-version.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${package}-config.cmake ${PROJECT_BINARY_DIR}/${package}-config-version.cmake
    DESTINATION ${destination} COMPONENT dev)

  # Who links an archive links what it needs. A shared library beside it would be preferred, were the file not named.
  set(platform_module ${KEL_HTTP_PLATFORM_PACKAGE})
  if(KEL_HTTP_STATIC)
    kel_install_module(${package} ${package} "-l${package} \${private_libs}")
  else()
    kel_install_module(${package} ${package} -l${package})
  endif()
  if(archives OR KEL_HTTP_STATIC)
    if(TARGET kel::platform-static)
      set(platform_module ${KEL_HTTP_PLATFORM_PACKAGE}-static)
    endif()
    kel_install_module(${package} ${package}-static "-l:lib${package}.a \${private_libs}")
  endif()
endfunction()
