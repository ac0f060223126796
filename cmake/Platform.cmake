# SPDX-License-Identifier: MIT
# Where the device's services come from. Everything else knows the target kel::platform only.
if(IS_DIRECTORY ${platform_folder})
  add_subdirectory(${platform_folder} ${PROJECT_BINARY_DIR}/platform)
  set(KEL_HTTP_PLATFORM_PACKAGE kel-platform)  # a folder that installs itself does it under this name
elseif(KEL_HTTP_PLATFORM MATCHES "^[A-Za-z0-9_.-]+$")
  find_package(${KEL_HTTP_PLATFORM} REQUIRED)
  set(KEL_HTTP_PLATFORM_PACKAGE ${KEL_HTTP_PLATFORM})
else()
  message(FATAL_ERROR "KEL_HTTP_PLATFORM is '${KEL_HTTP_PLATFORM}': there is no such folder, and no package has such a name")
endif()
if(NOT TARGET kel::platform)
  message(FATAL_ERROR "KEL_HTTP_PLATFORM is '${KEL_HTTP_PLATFORM}', which makes no target kel::platform")
endif()

# The tool, the examples and the tests set the host's services up (ko/host.h) and use its executors.
if(NOT on_host AND (KEL_HTTP_TOOLS OR KEL_HTTP_TESTS))
  message(FATAL_ERROR "KEL_HTTP_TOOLS and KEL_HTTP_TESTS need the host's own platform: switch them off for another one")
endif()
