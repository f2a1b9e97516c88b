SUMMARY = "Common utility library of a family of network appliances"
DESCRIPTION = "The configuration file, board identification, system commands, discovery, HTTP, \
listings of processes and sockets, statistics, locks, digests and texts, behind a plain C interface."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=96993b876e925a7540451d2cb96ba5e3"

# `./run package` makes the tarball in out/; it stands in a folder files/ beside this recipe.
PV = "1.0.0"
SRC_URI = "file://zorv-${PV}.tar.gz"
S = "${WORKDIR}/zorv-${PV}"

DEPENDS = "curl jansson libevent uthash zlib"
# Loaded by the first request, which no tool finds by itself.
RDEPENDS:${PN} = "libcurl"

inherit cmake pkgconfig

EXTRA_OECMAKE = "-DCMAKE_BUILD_TYPE=Release -DZORV_SIM=OFF -DZORV_TESTS=OFF -DZORV_WERROR=OFF"

# "pcap" lets zorvctl read packet captures. "pages-4k" is for kernels that have no larger pages, which
# save 40 KB of flash; "no-unwind" for units where nobody debugs.
PACKAGECONFIG ??= "tools"
PACKAGECONFIG[tools] = "-DZORV_TOOLS=ON,-DZORV_TOOLS=OFF,ncurses"
PACKAGECONFIG[pcap] = "-DZORVCTL_PCAP=ON,-DZORVCTL_PCAP=OFF,libpcap,libpcap"
PACKAGECONFIG[pages-4k] = "-DZORV_PAGE_SIZE=4096"
PACKAGECONFIG[no-unwind] = "-DZORV_UNWIND_TABLES=OFF"

PACKAGES =+ "zorv-utils"
FILES:zorv-utils = "${bindir}/zorvctl ${datadir}/bash-completion ${datadir}/zorv ${datadir}/zsh"
