# SPDX-License-Identifier: MIT
# The public records use tl::optional. Where the system has the header it is used, else our alias over std::optional.
include(CheckIncludeFileCXX)
check_include_file_cxx(tl/optional.hpp KEL_HTTP_HAVE_TL_OPTIONAL)
add_library(kel_tl_optional INTERFACE)
if(NOT KEL_HTTP_HAVE_TL_OPTIONAL)
  target_include_directories(kel_tl_optional INTERFACE ${PROJECT_SOURCE_DIR}/include/kel-http/compat)
endif()
