#!/usr/bin/env bash
# Builds liborvane.so with its tests, benchmarks and examples, and runs the
# whole test suite with CTest, except the real-kernel tier (label "kernel",
# run on its own: ctest -L kernel). Extra CMake arguments can be passed in
# ORVANE_CMAKE_ARGS (for example -DORVANE_WERROR=ON), another build folder in
# ORVANE_BUILD_DIR.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh g++ cmake ninja-build libgtest-dev libgmock-dev libbenchmark-dev socat \
                iproute2 pkg-config
build=${ORVANE_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DORVANE_BUILD_TESTS=ON -DORVANE_BUILD_EXAMPLES=ON \
      -DORVANE_BUILD_BENCH=ON ${ORVANE_CMAKE_ARGS:-}
cmake --build "$build" -j "$(nproc)"
ctest --test-dir "$build" -j "$(nproc)" -LE kernel --output-on-failure ${ORVANE_CTEST_ARGS:-}
