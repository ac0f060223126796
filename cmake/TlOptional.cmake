# SPDX-License-Identifier: MIT
# The public records use tl::optional. Where the system has the header it is used, else our alias over std::optional.
include(CheckIncludeFileCXX)
check_include_file_cxx(tl/optional.hpp KEL_HTTP_HAVE_TL_OPTIONAL)
add_library(kel_tl_optional INTERFACE)
set_target_properties(kel_tl_optional PROPERTIES EXPORT_NAME tl-optional)
if(NOT KEL_HTTP_HAVE_TL_OPTIONAL)
  target_include_directories(kel_tl_optional INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include/kel-http/compat>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kel-http/compat>)
  install(FILES ${PROJECT_SOURCE_DIR}/include/kel-http/compat/tl/optional.hpp COMPONENT dev
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kel-http/compat/tl)
  set(KEL_HTTP_TL_OPTIONAL_CFLAGS " -I\${includedir}/kel-http/compat")
endif()
