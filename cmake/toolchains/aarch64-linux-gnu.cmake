# Cross-compiles for aarch64-linux-gnu (g++-aarch64-linux-gnu; tests under qemu-aarch64):
#     cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
set(ORVANE_CROSS_TRIPLE aarch64-linux-gnu)
set(ORVANE_CROSS_QEMU aarch64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
