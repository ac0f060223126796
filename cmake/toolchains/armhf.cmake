# SPDX-License-Identifier: MIT
# 32-bit ARM with hardware floating point, as Debian's armhf: its cross compiler, and a sysroot that
# tools/make-armhf-sysroot makes. Programs run under qemu-arm.
if(NOT "$ENV{KEL_HTTP_SYSROOT}" STREQUAL "")
  set(sysroot $ENV{KEL_HTTP_SYSROOT})
elseif(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
  set(sysroot $ENV{XDG_CACHE_HOME}/kel-http/armhf-sysroot)
elseif(NOT "$ENV{HOME}" STREQUAL "")
  set(sysroot $ENV{HOME}/.cache/kel-http/armhf-sysroot)
else()
  set(sysroot /root/.cache/kel-http/armhf-sysroot)
endif()
# The compiler runs in other folders than CMake was started in.
if(NOT IS_ABSOLUTE ${sysroot})
  execute_process(COMMAND pwd OUTPUT_VARIABLE folder OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(sysroot ${folder}/${sysroot})
endif()
# Kept, so that a build goes on in a shell without the variable.
set(KEL_HTTP_SYSROOT ${sysroot} CACHE PATH "Root folder of the armhf system")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KEL_HTTP_SYSROOT)
set(CMAKE_SYSROOT ${KEL_HTTP_SYSROOT})
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/include)
  message(FATAL_ERROR "There is no armhf sysroot in '${CMAKE_SYSROOT}': run tools/make-armhf-sysroot first, "
                      "or name its folder in the environment variable KEL_HTTP_SYSROOT")
endif()
find_program(KEL_HTTP_ARM_COMPILER arm-linux-gnueabihf-g++ NO_CMAKE_FIND_ROOT_PATH)
if(NOT KEL_HTTP_ARM_COMPILER)
  message(FATAL_ERROR "There is no compiler arm-linux-gnueabihf-g++: run tools/install-deps arm")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER ${KEL_HTTP_ARM_COMPILER})
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
