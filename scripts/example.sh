#!/usr/bin/env bash
# Builds liborvane.so, orvane-gateway and orvane-gateway-client, then runs the
# gateway with its simulated serial device (a pseudo-terminal pair), sends a
# few requests with the client, shows the answers and the gateway's log, and
# stops the gateway with SIGTERM.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh g++ cmake ninja-build
build=${ORVANE_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_EXAMPLES=ON \
      ${ORVANE_CMAKE_ARGS:-}
cmake --build "$build" --target orvane orvane-gateway orvane-gateway-client -j "$(nproc)"

gateway="$build/examples/orvane-gateway"
client="$build/examples/orvane-gateway-client"
log=$(mktemp)
trap 'kill "$pid" 2>/dev/null || true; rm -f "$log"' EXIT

echo "---- starting orvane-gateway with its simulated device ----"
"$gateway" --listen 127.0.0.1:0 --run-for 60 > "$log" 2>&1 &
pid=$!
for _ in $(seq 100); do
    grep -q "gateway listening on" "$log" && break
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
done
address=$(sed -n 's/.*gateway listening on \([0-9.]*:[0-9]*\).*/\1/p' "$log")
[ -n "$address" ] || { cat "$log"; echo "the gateway did not start"; exit 1; }

echo "---- orvane-gateway-client $address 0148656c6c6f 02 09 ----"
echo "     (echo \"Hello\", device status, an unknown command)"
"$client" "$address" 0148656c6c6f 02 09 || true

echo "---- stopping the gateway (SIGTERM) ----"
kill -TERM "$pid"
status=0
wait "$pid" || status=$?
echo "---- the gateway's log ----"
sed 's/\x1b\[[0-9;]*m//g' "$log"
echo "---- orvane-gateway exited with status $status ----"
exit "$status"
