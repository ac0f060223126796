# SPDX-License-Identifier: MIT
# Debian packages of the three components; tools/make-packages builds them. Their names follow the library's SONAME.
set(runtime_package libkel-http${PROJECT_VERSION_MAJOR})
set(dev_package libkel-http-dev)
set(tools_package kel-http-tools)

file(CONFIGURE OUTPUT debian/changelog CONTENT "kel-http (${PROJECT_VERSION}) unstable; urgency=medium

  * CHANGELOG.md of the sources says what has changed.

 -- the libkel-http authors <maintainers@kel.example.net>  Sat, 21 Nov 2026 12:00:00 +0000
")
set(CPACK_KEL_DOCUMENTS ${PROJECT_SOURCE_DIR}/packaging/debian/copyright ${PROJECT_BINARY_DIR}/debian/changelog)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kel-http)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT "the libkel-http authors <maintainers@kel.example.net>")
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/debian/add-documents.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(CMAKE_LIBRARY_ARCHITECTURE STREQUAL "arm-linux-gnueabihf")
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/kel-http ${PROJECT_BINARY_DIR}/platform)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS ca-certificates)  # whom the host trusts by default
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "asynchronous HTTP client library for embedded Linux
Programs start requests and downloads from their own thread or event loop and
are called back there; one engine serves all of them. This package holds the
shared library, and the device's services in the version for a host.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${dev_package})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
string(JOIN ", " CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})"
  "libcurl4-openssl-dev (>= 7.61)" "libfmt-dev (>= 7)" libboost-filesystem-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "libssl-dev, libspdlog-dev, pkg-config, cmake")
set(CPACK_DEBIAN_DEV_DESCRIPTION "asynchronous HTTP client library - development files
Headers and archives, with what CMake and pkg-config need to know. Linking the
archives takes libssl-dev and libspdlog-dev as well.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION web)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "asynchronous HTTP client library - command-line tool
Sends requests of every kind, and downloads files whole or not at all, with
proxies, cookies, client certificates, and the time that each phase has taken.")

include(CPack)
