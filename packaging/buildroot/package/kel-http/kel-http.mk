################################################################################
#
# kel-http (SPDX-License-Identifier: MIT)
#
################################################################################

KEL_HTTP_VERSION = 0.1.0
KEL_HTTP_SITE = $(call qstrip,$(BR2_PACKAGE_KEL_HTTP_REPOSITORY))
KEL_HTTP_SITE_METHOD = git
KEL_HTTP_LICENSE = MIT
KEL_HTTP_LICENSE_FILES = LICENSE
KEL_HTTP_INSTALL_STAGING = YES
KEL_HTTP_DEPENDENCIES = boost fmt host-pkgconf libcurl openssl

KEL_HTTP_CONF_OPTS = \
	-DKEL_HTTP_DEMO=OFF \
	-DKEL_HTTP_TESTS=OFF \
	-DKEL_HTTP_DEFAULT_PROXY_HOST=$(call qstrip,$(BR2_PACKAGE_KEL_HTTP_DEFAULT_PROXY_HOST)) \
	-DKEL_HTTP_NO_PROXY_DOMAIN=$(call qstrip,$(BR2_PACKAGE_KEL_HTTP_NO_PROXY_DOMAIN))

ifeq ($(BR2_STATIC_LIBS),y)
KEL_HTTP_CONF_OPTS += -DKEL_HTTP_STATIC=ON
else
KEL_HTTP_CONF_OPTS += -DKEL_HTTP_STATIC=OFF
endif

ifeq ($(BR2_PACKAGE_KEL_HTTP_HOST_PLATFORM),y)
KEL_HTTP_DEPENDENCIES += spdlog
else
KEL_HTTP_CONF_OPTS += -DKEL_HTTP_PLATFORM=$(call qstrip,$(BR2_PACKAGE_KEL_HTTP_PLATFORM))
endif

ifeq ($(BR2_PACKAGE_KEL_HTTP_TOOL),y)
KEL_HTTP_DEPENDENCIES += cli11 json-for-modern-cpp
KEL_HTTP_CONF_OPTS += -DKEL_HTTP_TOOLS=ON
else
KEL_HTTP_CONF_OPTS += -DKEL_HTTP_TOOLS=OFF
endif

# pkg-config puts the sysroot in front of the folders that it prints, so that the modules name theirs without it.
define KEL_HTTP_FIX_PKGCONFIG_PREFIX
	$(SED) 's|^prefix=.*|prefix=/usr|' $(STAGING_DIR)/usr/lib/pkgconfig/kel-*.pc
endef
KEL_HTTP_POST_INSTALL_STAGING_HOOKS += KEL_HTTP_FIX_PKGCONFIG_PREFIX

$(eval $(cmake-package))
