# Shared by the toolchain files beside it: cross-compiles for
# ORVANE_CROSS_TRIPLE with Debian's cross compiler (g++-<triple>). Programs
# built for the target (the tests, and the test listing CMake runs at build
# time) run under qemu-user (qemu-<ORVANE_CROSS_QEMU>) with the target's
# libraries from /usr/<triple>.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${ORVANE_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ORVANE_CROSS_TRIPLE}-g++)
set(CMAKE_FIND_ROOT_PATH /usr/${ORVANE_CROSS_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${ORVANE_CROSS_QEMU} -L /usr/${ORVANE_CROSS_TRIPLE})
