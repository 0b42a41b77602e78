# Cross-compiles for riscv64-linux-gnu (g++-riscv64-linux-gnu; tests under qemu-riscv64):
#     cmake -S . -B build-riscv64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/riscv64-linux-gnu.cmake
set(ORVANE_CROSS_TRIPLE riscv64-linux-gnu)
set(ORVANE_CROSS_QEMU riscv64)
set(CMAKE_SYSTEM_PROCESSOR riscv64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
