# SPDX-License-Identifier: MIT
# 32-bit ARM with hardware floating point, as Debian's armhf: its cross compiler, and a sysroot that
# tools/make-armhf-sysroot makes. Programs run under qemu-arm.
if(DEFINED ENV{KEL_HTTP_SYSROOT})
  set(CMAKE_SYSROOT $ENV{KEL_HTTP_SYSROOT})
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(CMAKE_SYSROOT $ENV{XDG_CACHE_HOME}/kel-http/armhf-sysroot)
else()
  set(CMAKE_SYSROOT $ENV{HOME}/.cache/kel-http/armhf-sysroot)
endif()
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/include)
  message(FATAL_ERROR "There is no armhf sysroot in '${CMAKE_SYSROOT}': run tools/make-armhf-sysroot first, "
                      "or name its folder in the environment variable KEL_HTTP_SYSROOT")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# All of a system's C++ code is made by one compiler version: what changed with an older one is no news.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# Only tests need it.
find_program(KEL_HTTP_QEMU_ARM qemu-arm NO_CMAKE_FIND_ROOT_PATH)
if(KEL_HTTP_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KEL_HTTP_QEMU_ARM} -L ${CMAKE_SYSROOT})
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
