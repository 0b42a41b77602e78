#!/usr/bin/env bash
# Runs test programs inside a disposable virtual machine with Debian's own
# Linux kernel, so that tests can meet real drivers: SocketCAN on vcan, 8250
# UARTs wired to each other, the CMOS real-time clock, a USB serial adapter
# (ftdi_sio), a virtio disk, dummy and veth interfaces.
#
#   scripts/kernel-vm.sh [--cache DIR] [--timeout SECONDS] PROGRAM [ARGS...]
#
# Everything comes from Debian packages: qemu-system-x86 (TCG, no KVM needed),
# the kernel of linux-image-amd64 (fetched with apt-get download, unpacked with
# dpkg -x into the cache), busybox-static for the initramfs, can-utils and
# iproute2 for the guest's tools, e2fsprogs for the disk image. PROGRAM and the
# shared libraries ldd names are copied into the initramfs at the same paths;
# /init prepares the devices, runs PROGRAM as root with ORVANE_KERNEL_VM=1
# in the environment and powers off. PROGRAM's exit code becomes this
# script's; 77 means the machine cannot run the VM (one line says why).
#
# The guest's devices: ttyS0 the console, ttyS1 and ttyS2 wired to each other,
# ttyS3 wired to the USB serial adapter (/dev/ttyUSB0), /dev/vda a 16 MiB ext4
# disk labelled "orvanedisk", vcan0 up, dummy0 (10.11.12.1/24) and the veth
# pair veth0 (10.11.13.1/24) / veth1 up. iproute2's ip is /usr/sbin/ip (a
# plain "ip" in the guest's shell is busybox's).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cache=${TMPDIR:-/tmp}/orvane-kernel-vm
timeout=600
while [ $# -gt 0 ]; do
    case $1 in
    --cache) cache=$2; shift 2 ;;
    --timeout) timeout=$2; shift 2 ;;
    *) break ;;
    esac
done
[ $# -ge 1 ] || { echo "usage: $0 [--cache DIR] [--timeout SECONDS] PROGRAM [ARGS...]" >&2; exit 2; }
program=$(realpath "$1")
shift

skip() {
    echo "SKIP: $*"
    exit 77
}

# Host tools. scripts/deps.sh installs what is missing when run as root.
"$root/scripts/deps.sh" qemu-system-x86 busybox-static can-utils iproute2 e2fsprogs cpio \
    > "${TMPDIR:-/tmp}/orvane-kernel-vm-deps.$$.log" 2>&1 ||
    skip "cannot install the packages the virtual machine needs:" \
         "$(tail -n 3 "${TMPDIR:-/tmp}/orvane-kernel-vm-deps.$$.log" | tr '\n' ' ')"
rm -f "${TMPDIR:-/tmp}/orvane-kernel-vm-deps.$$.log"
for tool in qemu-system-x86_64 cansend candump ip mke2fs cpio; do
    command -v "$tool" > /dev/null || skip "$tool is missing"
done
[ -x /bin/busybox ] || skip "/bin/busybox (busybox-static) is missing"

# The kernel: the real package linux-image-amd64 depends on, fetched and
# unpacked once into the cache.
mkdir -p "$cache"
kernel_pkg=$(apt-cache depends linux-image-amd64 2> /dev/null |
             sed -n 's/^ *Depends: \(linux-image-[0-9].*-amd64\)$/\1/p' | head -n 1)
[ -n "$kernel_pkg" ] || skip "apt-cache knows no linux-image-amd64 (run apt-get update)"
kernel_tree=$cache/$kernel_pkg
if [ ! -f "$kernel_tree/.unpacked" ]; then
    echo "fetching $kernel_pkg"
    rm -rf "$kernel_tree" "$cache"/debs
    mkdir -p "$cache/debs"
    # apt's sandbox user may not write to the cache: fetch in a fresh folder.
    (cd "$cache/debs" && chmod 0777 . && apt-get download -q "$kernel_pkg" > /dev/null 2>&1) ||
        skip "apt-get download $kernel_pkg failed (no network or mirror?)"
    dpkg -x "$cache"/debs/"$kernel_pkg"_*.deb "$kernel_tree" ||
        skip "dpkg -x of $kernel_pkg failed"
    rm -rf "$cache/debs"
    touch "$kernel_tree/.unpacked"
fi
images=("$kernel_tree"/boot/vmlinuz-*)
vmlinuz=${images[0]}
release=${vmlinuz##*/vmlinuz-}
moddir=$kernel_tree/lib/modules/$release

# The modules /init loads, in this order, with everything they depend on
# (each module's "depends=" in its .modinfo section, as depmod reads it).
modules="can can_raw vcan dummy veth virtio_pci virtio_blk crc32c_generic ext4 xhci_pci usbserial ftdi_sio"
declare -A module_path
while IFS= read -r file; do
    name=${file##*/}
    name=${name%.ko}
    module_path[${name//-/_}]=$file
done < <(find "$moddir/kernel" -name '*.ko')
declare -A module_seen
module_files=()
add_module() {
    local name=${1//-/_} dep
    [ -n "${module_seen[$name]:-}" ] && return 0
    module_seen[$name]=1
    local file=${module_path[$name]:-}
    [ -n "$file" ] || return 0  # built into the kernel
    for dep in $(tr '\0' '\n' < "$file" | sed -n 's/^depends=//p' | tr ',' ' '); do
        add_module "$dep"
    done
    module_files+=("$file")
}
for module in $modules; do add_module "$module"; done

# The initramfs, built fresh for each run in a scratch folder.
work=$(mktemp -d "${TMPDIR:-/tmp}/orvane-kernel-vm.XXXXXX")
trap 'rm -rf "$work"' EXIT
rootfs=$work/rootfs
mkdir -p "$rootfs"/{bin,sbin,usr/bin,usr/sbin,proc,sys,dev,tmp,run,etc,root,mnt}
mkdir -p "$rootfs/lib/modules/$release"
cp /bin/busybox "$rootfs/bin/busybox"
copy_with_libs() {
    local file lib
    for file in "$@"; do
        mkdir -p "$rootfs$(dirname "$file")"
        cp -L "$file" "$rootfs$file"
        for lib in $(ldd "$file" 2> /dev/null | grep -o '/[^ ]*'); do
            [ -e "$rootfs$lib" ] && continue
            mkdir -p "$rootfs$(dirname "$lib")"
            cp -L "$lib" "$rootfs$lib"
        done
    done
}
copy_with_libs "$program" "$(command -v cansend)" "$(command -v candump)" "$(command -v ip)"
# busybox's shell runs its own applets before any program of the same name:
# iproute2's ip is called by its full path, /usr/sbin/ip in the guest.
[ -e "$rootfs/usr/sbin/ip" ] || cp -L "$(command -v ip)" "$rootfs/usr/sbin/ip"
for file in "${module_files[@]}"; do
    cp "$file" "$rootfs/lib/modules/$release/"
    echo "/lib/modules/$release/${file##*/}" >> "$rootfs/modules.load"
done
echo "root:x:0:0:root:/root:/bin/sh" > "$rootfs/etc/passwd"
echo "root:x:0:" > "$rootfs/etc/group"
{
    printf 'ORVANE_PROGRAM=%q\n' "$program"
    printf 'ORVANE_ARGS=%q\n' "$*"
    # A sanitizer build's options travel with it.
    for name in ASAN_OPTIONS UBSAN_OPTIONS TSAN_OPTIONS LSAN_OPTIONS; do
        if [ -n "${!name:-}" ]; then printf 'export %s=%q\n' "$name" "${!name}"; fi
    done
} > "$rootfs/program.env"

cat > "$rootfs/init" << 'EOF'
#!/bin/busybox sh
/bin/busybox --install -s /bin
export PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TMPDIR=/tmp
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
# /tmp stays on the root file system, itself a tmpfs: a mount there would hide
# a test program built under /tmp, copied into the guest at its own path.
mount -t tmpfs tmpfs /dev/shm
echo "==== orvane kernel tier: begin ($(uname -r)) ===="
step() { "$@" || echo "init: failed: $*"; }
while read -r module; do
    step insmod "$module"
done < /modules.load
step /usr/sbin/ip link set lo up
step /usr/sbin/ip link add vcan0 type vcan
step /usr/sbin/ip link set vcan0 up
# The dummy driver makes dummy0 itself when it loads.
[ -e /sys/class/net/dummy0 ] || step /usr/sbin/ip link add dummy0 type dummy
step /usr/sbin/ip addr add 10.11.12.1/24 brd + dev dummy0
step /usr/sbin/ip link set dummy0 up
step /usr/sbin/ip link add veth0 type veth peer name veth1
step /usr/sbin/ip addr add 10.11.13.1/24 brd + dev veth0
step /usr/sbin/ip link set veth0 up
step /usr/sbin/ip link set veth1 up
# The USB adapter and the disk appear once their drivers have probed.
for i in $(seq 100); do [ -e /dev/ttyUSB0 ] && [ -e /dev/vda ] && break; sleep 0.1; done
. /program.env
ORVANE_KERNEL_VM=1 "$ORVANE_PROGRAM" $ORVANE_ARGS
echo "==== orvane kernel tier: end, exit code $? ===="
poweroff -f
EOF
chmod +x "$rootfs/init"
(cd "$rootfs" && find . | cpio -o -H newc --quiet > "$work/initramfs.cpio")

# The disk: a small ext4 file system made here.
truncate -s 16M "$work/disk.img"
mke2fs -q -t ext4 -L orvanedisk -F "$work/disk.img"

console=$work/console.log
started=$(date +%s)
# timeout stays in the foreground process group, so an interrupt reaches qemu.
status=0
timeout --foreground "$timeout" \
    qemu-system-x86_64 -accel tcg -machine pc -nographic -no-reboot -m 512 -smp 1 \
    -monitor none -serial "file:$console" \
    -chardev "socket,id=uart1,path=$work/uart.sock,server=on,wait=off" -serial chardev:uart1 \
    -chardev "socket,id=uart2,path=$work/uart.sock" -serial chardev:uart2 \
    -chardev "socket,id=usb1,path=$work/usb.sock,server=on,wait=off" -serial chardev:usb1 \
    -chardev "socket,id=usb2,path=$work/usb.sock" \
    -device qemu-xhci,id=xhci -device usb-serial,bus=xhci.0,chardev=usb2 \
    -drive "file=$work/disk.img,format=raw,if=virtio" \
    -kernel "$vmlinuz" -initrd "$work/initramfs.cpio" \
    -append "console=ttyS0 quiet loglevel=1 panic=-1 rdinit=/init" \
    < /dev/null > "$work/qemu.log" 2>&1 || status=$?
[ "$status" -ne 124 ] || status=timeout
elapsed=$(( $(date +%s) - started ))

# Without carriage returns and the firmware's terminal resets.
tr -d '\r' < "$console" | sed 's/\x1bc//g; s/\x1b\[[0-9;?]*[a-zA-Z]//g' > "$work/console.txt"
if ! grep -q "==== orvane kernel tier: begin" "$work/console.txt"; then
    cat "$work/qemu.log"
    tail -n 40 "$work/console.txt"
    echo "the virtual machine did not start the tests (${elapsed} s, status $status)"
    exit 1
fi
sed -n '/==== orvane kernel tier: begin/,$p' "$work/console.txt" | grep -v '^\[ *[0-9.]*\] '
code=$(sed -n 's/^==== orvane kernel tier: end, exit code \([0-9]*\) ====$/\1/p' "$work/console.txt")
if [ -z "$code" ]; then
    echo "the tests did not finish (${elapsed} s, status $status)"
    exit 1
fi
echo "virtual machine: ${elapsed} s from start to power-off"
exit "$code"
