# Cross-compiles for arm-linux-gnueabihf (g++-arm-linux-gnueabihf; tests under qemu-arm):
#     cmake -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
set(ORVANE_CROSS_TRIPLE arm-linux-gnueabihf)
set(ORVANE_CROSS_QEMU arm)
set(CMAKE_SYSTEM_PROCESSOR arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
