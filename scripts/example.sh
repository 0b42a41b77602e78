#!/usr/bin/env bash
# Builds liborvane.so and the example device program, then runs the example
# for a few seconds (it stops by itself; press Ctrl-C to stop it sooner).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh g++ cmake ninja-build
build=${ORVANE_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_EXAMPLES=ON \
      ${ORVANE_CMAKE_ARGS:-}
cmake --build "$build" --target orvane gateway -j "$(nproc)"
echo "---- running examples/gateway --once ----"
"$build/examples/gateway" --once
