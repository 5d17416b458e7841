# Untested: Buildroot was not at hand when this was written.
################################################################################
#
# kova-rtsp-server
#
################################################################################

# Copy this folder to package/kova-rtsp-server, name it in package/Config.in under "Libraries",
# "Multimedia", and tell here where the sources are.
KOVA_RTSP_SERVER_VERSION = 0.1.0
KOVA_RTSP_SERVER_SITE = /path/to/kovartspserver
KOVA_RTSP_SERVER_SITE_METHOD = local
KOVA_RTSP_SERVER_LICENSE = UNSPECIFIED
KOVA_RTSP_SERVER_REDISTRIBUTE = NO
KOVA_RTSP_SERVER_INSTALL_STAGING = YES
KOVA_RTSP_SERVER_CONF_OPTS = \
	-DKOVA_BUILD_TESTS=OFF \
	-DKOVA_BUILD_EXAMPLES=OFF \
	-DKOVA_BUILD_APPS=OFF \
	-DKOVA_WERROR=OFF

# The linker pads segments to 64 KiB on MIPS unless told the page size.
ifeq ($(BR2_mips)$(BR2_mipsel),y)
KOVA_RTSP_SERVER_CONF_OPTS += -DKOVA_PAGE_SIZE=4096
endif

$(eval $(cmake-package))
