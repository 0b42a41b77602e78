################################################################################
#
# orvane
#
################################################################################

# Built from the source tree this external tree lives in:
#   make BR2_EXTERNAL=/path/to/orvane/packaging/buildroot menuconfig
ORVANE_VERSION = 0.1.0
ORVANE_SITE = $(BR2_EXTERNAL_ORVANE_PATH)/../..
ORVANE_SITE_METHOD = local
ORVANE_INSTALL_STAGING = YES

# Only the library: no tests, benchmarks or examples, so nothing is fetched
# while building. The cmake infrastructure passes the toolchain and /usr;
# libatomic is linked where the target needs it, which the build finds out by
# itself. orvane.pc names the absolute /usr prefix, so that pkg-config's
# sysroot prefix is added exactly once.
ORVANE_CONF_OPTS = -DORVANE_BUILD_TESTS=OFF -DORVANE_BUILD_BENCH=OFF -DORVANE_BUILD_EXAMPLES=OFF -DORVANE_BUILD_FUZZ=OFF -DORVANE_PC_RELOCATABLE=OFF

$(eval $(cmake-package))
