################################################################################
#
# libzorv
#
################################################################################

LIBZORV_VERSION = 1.0.0
LIBZORV_SOURCE = zorv-$(LIBZORV_VERSION).tar.gz
# `./run package` makes the tarball in out/; it stands beside this file, or in the download folder.
LIBZORV_SITE = $(LIBZORV_PKGDIR)
LIBZORV_SITE_METHOD = file
LIBZORV_LICENSE = MIT
LIBZORV_LICENSE_FILES = LICENSE
LIBZORV_INSTALL_STAGING = YES
LIBZORV_DEPENDENCIES = host-pkgconf jansson libcurl libevent uthash zlib
LIBZORV_CONF_OPTS = \
	-DZORV_SIM=OFF \
	-DZORV_TESTS=OFF \
	-DZORV_WERROR=OFF

# Kernels with larger pages could not load it.
ifeq ($(BR2_ARM64_PAGE_SIZE_4K),y)
LIBZORV_CONF_OPTS += -DZORV_PAGE_SIZE=4096
endif

ifeq ($(BR2_PACKAGE_LIBZORV_TOOLS),y)
LIBZORV_DEPENDENCIES += ncurses
LIBZORV_CONF_OPTS += -DZORV_TOOLS=ON
ifeq ($(BR2_PACKAGE_LIBPCAP),y)
LIBZORV_DEPENDENCIES += libpcap
else
LIBZORV_CONF_OPTS += -DZORVCTL_PCAP=OFF
endif
else
LIBZORV_CONF_OPTS += -DZORV_TOOLS=OFF
endif

$(eval $(cmake-package))
