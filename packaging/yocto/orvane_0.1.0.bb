SUMMARY = "Application framework for embedded Linux devices"
DESCRIPTION = "orvane: one shared library (liborvane.so) with an application \
skeleton, logging, threads, timers, event loop and wrappers over files, IPC, \
sockets, CAN, serial ports and SPI devices."
SECTION = "libs"
LICENSE = "CLOSED"

# Fetched from git when the image is built (set ORVANE_GIT_URI and SRCREV in
# local.conf or a bbappend), or built from a checkout with externalsrc:
#   INHERIT += "externalsrc"
#   EXTERNALSRC:pn-orvane = "/path/to/orvane"
ORVANE_GIT_URI ??= "git://git.example.invalid/orvane.git;protocol=https;branch=main"
SRC_URI = "${ORVANE_GIT_URI}"
SRCREV ??= "${AUTOREV}"
S = "${WORKDIR}/git"

# The library's ucontext coroutines and POSIX message queues need glibc.
COMPATIBLE_HOST:libc-musl = "null"

inherit cmake pkgconfig

# Only the library: no tests, benchmarks or examples, so nothing is fetched
# while building. The cmake class passes the install directories (/usr, lib)
# and the toolchain; libatomic is linked where the target needs it, which the
# build finds out by itself. orvane.pc names the absolute /usr prefix, so that
# pkg-config's sysroot prefix is added exactly once.
EXTRA_OECMAKE = "-DORVANE_BUILD_TESTS=OFF -DORVANE_BUILD_BENCH=OFF -DORVANE_BUILD_EXAMPLES=OFF -DORVANE_BUILD_FUZZ=OFF -DORVANE_PC_RELOCATABLE=OFF"

# The usual FILES split fits: ${PN} gets liborvane.so.<version> and its
# soname link, ${PN}-dev the headers, liborvane.so, lib/cmake/orvane and
# lib/pkgconfig/orvane.pc.
