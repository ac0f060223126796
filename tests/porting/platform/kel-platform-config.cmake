# SPDX-License-Identifier: MIT
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_dependency(Boost COMPONENTS filesystem)
find_dependency(OpenSSL)
include(${CMAKE_CURRENT_LIST_DIR}/kel-platform-targets.cmake)
