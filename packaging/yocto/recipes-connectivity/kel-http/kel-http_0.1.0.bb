# SPDX-License-Identifier: MIT
SUMMARY = "Asynchronous HTTP client library for embedded Linux"
DESCRIPTION = "Programs start requests and downloads from their own thread or event loop and are called back there; one \
engine serves all of them."
HOMEPAGE = "https://kel.example.net/libkel-http"
SECTION = "libs/network"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=a890e664d487f92815b674af0d355a8f"

DEPENDS = "boost curl fmt openssl"

# Where the sources are kept, and the commit of the version: both are the integrator's to set. Without the commit the fetch
# fails, rather than to build whatever is newest.
KEL_HTTP_REPOSITORY ?= "git://git.kel.example.net/libkel-http.git;protocol=https;branch=main"
KEL_HTTP_REVISION ?= "INVALID"
SRC_URI = "${KEL_HTTP_REPOSITORY} file://run-ptest"
SRCREV = "${KEL_HTTP_REVISION}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig ptest

# The deployment's proxy, and its domain of 31 characters.
KEL_HTTP_DEFAULT_PROXY_HOST ?= "proxy.kel.example.net"
KEL_HTTP_NO_PROXY_DOMAIN ?= "device-services.kel.example.net"

# "host-platform" are the services of a host. A device brings its own instead: a recipe that installs a CMake package with
# the target kel::platform, named by KEL_HTTP_PLATFORM_RECIPE and KEL_HTTP_PLATFORM_PACKAGE.
PACKAGECONFIG ??= "host-platform ${@bb.utils.contains('PTEST_ENABLED', '1', 'tests', '', d)}"
PACKAGECONFIG[host-platform] = ",-DKEL_HTTP_PLATFORM=${KEL_HTTP_PLATFORM_PACKAGE},spdlog,,,"
PACKAGECONFIG[static] = "-DKEL_HTTP_STATIC=ON,-DKEL_HTTP_STATIC=OFF"
PACKAGECONFIG[tool] = "-DKEL_HTTP_TOOLS=ON,-DKEL_HTTP_TOOLS=OFF,cli11 nlohmann-json"
PACKAGECONFIG[demo] = "-DKEL_HTTP_DEMO=ON,-DKEL_HTTP_DEMO=OFF,cpp-httplib"
PACKAGECONFIG[tests] = "-DKEL_HTTP_TESTS=ON,-DKEL_HTTP_TESTS=OFF,gtest"
PACKAGECONFIG[werror] = "-DKEL_HTTP_WERROR=ON,-DKEL_HTTP_WERROR=OFF"
KEL_HTTP_PLATFORM_PACKAGE ?= "kel-platform"
KEL_HTTP_PLATFORM_RECIPE ?= ""
DEPENDS += "${@bb.utils.contains('PACKAGECONFIG', 'host-platform', '', d.getVar('KEL_HTTP_PLATFORM_RECIPE'), d)}"

EXTRA_OECMAKE = "\
    -DKEL_HTTP_DEFAULT_PROXY_HOST=${KEL_HTTP_DEFAULT_PROXY_HOST} \
    -DKEL_HTTP_NO_PROXY_DOMAIN=${KEL_HTTP_NO_PROXY_DOMAIN} \
    -DCMAKE_BUILD_WITH_INSTALL_RPATH=ON \
    -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST \
    -DKEL_HTTP_NGINX=${sbindir}/nginx -DKEL_HTTP_SQUID=${sbindir}/squid \
    -DKEL_HTTP_TINYPROXY=${bindir}/tinyproxy -DKEL_HTTP_OPENSSL=${bindir}/openssl \
"

# pkg-config puts the sysroot in front of the folders that it prints, so that the modules name theirs without it.
do_install:append() {
    sed -i -e 's|^prefix=.*|prefix=${prefix}|' ${D}${libdir}/pkgconfig/*.pc
}

# What needs no helper program at a path of the build.
KEL_HTTP_PTESTS = "platform_tests support_tests model_tests engine_tests engine_hooks_tests engine_interposed_tests \
                   client_tests legacy_tests"
do_install_ptest() {
    for program in ${KEL_HTTP_PTESTS}; do
        install -D -m 0755 ${B}/bin/$program ${D}${PTEST_PATH}/$program
    done
}

PACKAGES =+ "${PN}-tools"
FILES:${PN}-tools = "${bindir}/kel-http ${datadir}/bash-completion ${datadir}/zsh"
# The tests know where the build has their helpers; those that start one are left out by run-ptest.
INSANE_SKIP:${PN}-ptest += "buildpaths"
RDEPENDS:${PN}-ptest += "nginx openssl-bin squid tinyproxy"
# An empty runtime package when the library is static only.
ALLOW_EMPTY:${PN} = "1"
