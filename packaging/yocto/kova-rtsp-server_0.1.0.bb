# Untested: no Yocto build was at hand when this was written.
SUMMARY = "RTSP server library for live H.264 and AAC"
DESCRIPTION = "RTSP server library for live H.264 and AAC over RTP, with a C interface. Needs \
nothing at run time but the C library."
SECTION = "libs"
LICENSE = "CLOSED"

# Tell here where the sources are and at which commit.
SRC_URI = "git:///path/to/kovartspserver;protocol=file;branch=main"
SRCREV = "${AUTOREV}"
S = "${WORKDIR}/git"

inherit cmake pkgconfig

EXTRA_OECMAKE = "\
    -DKOVA_BUILD_TESTS=OFF \
    -DKOVA_BUILD_EXAMPLES=OFF \
    -DKOVA_BUILD_APPS=OFF \
    -DKOVA_WERROR=OFF \
"
# The linker pads segments to 64 KiB on MIPS unless told the page size.
EXTRA_OECMAKE:append:mips = " -DKOVA_PAGE_SIZE=4096"
EXTRA_OECMAKE:append:mipsel = " -DKOVA_PAGE_SIZE=4096"

# pkg-config, CMake package, header and links go to ${PN}-dev as usual.
