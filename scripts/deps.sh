#!/usr/bin/env bash
# Makes sure the Debian packages named as arguments are installed. As root it
# installs what is missing with apt-get; otherwise it prints the exact
# apt-get line to run and fails.
set -euo pipefail

missing=()
for pkg in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    echo "Installing build dependencies: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
else
    echo "Missing build dependencies. Install them with:" >&2
    echo "    sudo apt-get install -y ${missing[*]}" >&2
    exit 1
fi
