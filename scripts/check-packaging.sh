#!/usr/bin/env bash
# Checks the packages a user installs or builds into an image:
#  1. Debian packages: cpack in an existing native build tree (argument 1,
#     default build-ci-gcc), install them with dpkg, build .ci/consumer
#     against the system copy through find_package and pkg-config with no
#     path hints, run it, and remove the packages again.
#  2. The Yocto recipe and the Buildroot package: the CMake options both pass
#     (they must agree), a cross build for aarch64 with them, staged with
#     DESTDIR into a sysroot-like directory, then .ci/consumer cross-built
#     against the staging through pkg-config (PKG_CONFIG_SYSROOT_DIR and
#     PKG_CONFIG_LIBDIR, as the image builders set them) and through
#     find_package (CMAKE_SYSROOT and CMAKE_FIND_ROOT_PATH); the cross tree
#     also packaged as arm64 Debian packages.
# Run as root (dpkg). Refuses to touch an orvane package it did not install.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
native=${1:-build-ci-gcc}
work=$(mktemp -d)
installed=()
cleanup() {
    if [ ${#installed[@]} -gt 0 ]; then
        dpkg --purge "${installed[@]}" > /dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

scripts/deps.sh cmake ninja-build g++ pkg-config dpkg-dev g++-aarch64-linux-gnu

echo "---- Debian packages from $native ----"
[ -f "$native/CMakeCache.txt" ] || { echo "no build tree at $native"; exit 1; }
(cd "$native" && cpack -G DEB -B "$work/debs" > "$work/cpack.log") ||
    { cat "$work/cpack.log"; exit 1; }
isInstalled() { dpkg-query -W -f='${Status}' "$1" 2> /dev/null | grep -q installed; }
mapfile -t debs < <(ls "$work"/debs/*.deb)
mapfile -t packages < <(for deb in "${debs[@]}"; do dpkg-deb -f "$deb" Package; done)
for i in "${!debs[@]}"; do
    deb=${debs[$i]}
    if isInstalled "${packages[$i]}"; then
        echo "${packages[$i]} is already installed on this machine; not replacing it"
        exit 1
    fi
    printf '%-40s %8d bytes  %s  Depends: %s\n' "$(basename "$deb")" "$(stat -c %s "$deb")" \
        "$(dpkg-deb -f "$deb" Architecture)" "$(dpkg-deb -f "$deb" Depends)"
done
installed=("${packages[@]}")
dpkg -i "${debs[@]}" > /dev/null
cmake -S .ci/consumer -B "$work/consumer-deb" -G Ninja > /dev/null
cmake --build "$work/consumer-deb" > /dev/null
grep -q "orvane_DIR:PATH=/usr/" "$work/consumer-deb/CMakeCache.txt" ||
    { grep orvane_DIR "$work/consumer-deb/CMakeCache.txt"; echo "find_package did not use the package"; exit 1; }
"$work/consumer-deb/consumer" > /dev/null
read -r -a flags <<< "$(env -u PKG_CONFIG_PATH pkg-config --cflags --libs orvane)"
g++ -std=c++17 -Wall -Wextra -Werror .ci/consumer/main.cpp -o "$work/consumer-deb-pc" "${flags[@]}"
"$work/consumer-deb-pc" > /dev/null
echo "installed, built and ran the consumer through find_package and pkg-config"
dpkg --purge "${installed[@]}" > /dev/null
installed=()
for package in "${packages[@]}"; do
    if isInstalled "$package"; then echo "$package is still installed"; exit 1; fi
done
[ ! -e /usr/include/orvane ] || { echo "/usr/include/orvane left behind"; exit 1; }
echo "removed again"

echo "---- Yocto recipe and Buildroot package, cross-built for aarch64 ----"
recipe=$(ls packaging/yocto/orvane_*.bb)
yocto=$(sed -n 's/^EXTRA_OECMAKE = "\(.*\)"$/\1/p' "$recipe")
buildroot=$(sed -n 's/^ORVANE_CONF_OPTS = //p' packaging/buildroot/orvane/orvane.mk)
if [ -z "$yocto" ] || [ "$yocto" != "$buildroot" ]; then
    echo "the recipe ($yocto) and the Buildroot package ($buildroot) pass different options"
    exit 1
fi
echo "options: $yocto"
# Both pass the target toolchain, /usr and a lib directory of their own.
launcher=()
command -v ccache > /dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
read -r -a options <<< "$yocto"
cmake -S . -B "$work/cross" -G Ninja "${launcher[@]}" \
      -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/aarch64-linux-gnu.cmake" \
      -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib \
      "${options[@]}" > /dev/null
cmake --build "$work/cross" -j "$(nproc)" > "$work/cross.log" 2>&1 || { cat "$work/cross.log"; exit 1; }
# The same tree packaged as Debian packages for the target's architecture.
(cd "$work/cross" && cpack -G DEB -B "$work/cross-debs" > "$work/cross-cpack.log") ||
    { cat "$work/cross-cpack.log"; exit 1; }
for deb in "$work"/cross-debs/*.deb; do
    echo "$(basename "$deb"): $(dpkg-deb -f "$deb" Architecture), Depends: $(dpkg-deb -f "$deb" Depends)"
    [ "$(dpkg-deb -f "$deb" Architecture)" = arm64 ] || { echo "not an arm64 package"; exit 1; }
done
sysroot=$work/sysroot
DESTDIR=$sysroot cmake --install "$work/cross" > /dev/null
[ ! -e "$sysroot/usr/bin" ] || { echo "the image build installs programs:"; ls "$sysroot/usr/bin"; exit 1; }
(cd "$sysroot" && find . -type f -o -type l | sort | sed 's/^\./  /' | grep -v '/include/orvane/')
# The toolchain's own sysroot stands in for the rest of the image's.
export PKG_CONFIG_SYSROOT_DIR=$sysroot PKG_CONFIG_LIBDIR=$sysroot/usr/lib/pkgconfig
unset PKG_CONFIG_PATH
pcflags=$(pkg-config --cflags --libs orvane)
echo "pkg-config: $pcflags"
case "$pcflags" in *"-I$sysroot/usr/include"*"-L$sysroot/usr/lib"*) ;;
    *) echo "pkg-config paths are not under the sysroot once"; exit 1 ;; esac
read -r -a flags <<< "$pcflags"
aarch64-linux-gnu-g++ -std=c++17 -Wall -Wextra -Werror .ci/consumer/main.cpp \
    -o "$work/consumer-cross-pc" "${flags[@]}" -Wl,-rpath-link,"$sysroot/usr/lib"
unset PKG_CONFIG_SYSROOT_DIR PKG_CONFIG_LIBDIR
# As the image builders' toolchain files do: the staging is the sysroot and
# the root that find_package searches.
cat > "$work/staging.cmake" <<TOOLCHAIN
include($root/cmake/toolchains/aarch64-linux-gnu.cmake)
set(CMAKE_SYSROOT $sysroot)
list(PREPEND CMAKE_FIND_ROOT_PATH $sysroot)
TOOLCHAIN
cmake -S .ci/consumer -B "$work/consumer-cross-cmake" -G Ninja \
      -DCMAKE_TOOLCHAIN_FILE="$work/staging.cmake" > /dev/null
grep -q "orvane_DIR:PATH=$sysroot/usr/lib/cmake/orvane" "$work/consumer-cross-cmake/CMakeCache.txt" ||
    { grep orvane_DIR "$work/consumer-cross-cmake/CMakeCache.txt"; echo "find_package did not use the staging"; exit 1; }
cmake --build "$work/consumer-cross-cmake" > "$work/consumer-cross.log" 2>&1 ||
    { cat "$work/consumer-cross.log"; exit 1; }
for program in "$work/consumer-cross-pc" "$work/consumer-cross-cmake/consumer"; do
    machine=$(readelf -h "$program" | sed -n 's/^ *Machine: *//p')
    needed=$(readelf -d "$program" | sed -n 's/.*Shared library: \[\(liborvane[^]]*\)\]/\1/p')
    echo "$(basename "$program"): $machine, needs $needed"
    [ "$needed" = "$(readelf -d "$sysroot"/usr/lib/liborvane.so | sed -n 's/.*soname: \[\(.*\)\]/\1/p')" ] ||
        { echo "not linked against the staged library"; exit 1; }
done
if command -v qemu-aarch64 > /dev/null; then
    LD_LIBRARY_PATH="$sysroot/usr/lib" qemu-aarch64 -L /usr/aarch64-linux-gnu \
        "$work/consumer-cross-cmake/consumer" > /dev/null
    echo "ran the cross-built consumer under qemu-aarch64"
fi
echo "packaging checks passed"
