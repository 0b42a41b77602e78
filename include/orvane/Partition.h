#pragma once

#include <orvane/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {

// One mounted file system as /proc/self/mountinfo describes it, with the
// kernel's octal escapes (\040 for a space, \011, \012, \134) decoded.
struct ORVANE_API MountInfo {
    // The mount's id in the table.
    int mountId = -1;
    // The id of the mount this one is mounted on.
    int parentId = -1;
    unsigned int major = 0;  // device number of the file system
    // Minor device number of the file system.
    unsigned int minor = 0;
    std::string root;          // directory of the file system mounted here ("/" usually)
    std::string mountPoint;    // where it is mounted, e.g. "/data"
    std::string options;       // per-mount options, e.g. "rw,nosuid,relatime"
    std::string fsType;        // e.g. "ext4", "tmpfs"
    std::string source;        // e.g. "/dev/mmcblk0p3", "none"
    std::string superOptions;  // options of the file system itself
    // True when the mount (options) or the file system (superOptions) is read-only.
    bool readOnly() const;
};

// Mounted file systems: which are there, which one holds a path, how much
// room is left, and mount, unmount, remount and sync.
//
//     MountInfo data;
//     if (Partition::mountOf("/data/log/app.log", &data) &&
//         Partition::availableBytes(data.mountPoint) < (16 << 20)) { ... }   // low on space
//     Partition::remount("/data", true);     // read-only again (needs privilege)
//
// All static, no state; safe from any thread. The mount table is read afresh
// from /proc/self/mountinfo on every call (one read of a few KiB; in this
// process's mount namespace); the space queries make one statvfs() each.
// mount, unmount and remount need CAP_SYS_ADMIN: without it they log the
// refusal ("Operation not permitted") and return false, as every failure
// is logged once and reported by result (false, -1, empty).
//
// Behaviour worth knowing:
// - mountOf resolves the path with realpath() first (links and ".." taken
//   into account), so the path must exist; the mount whose mount point is
//   the longest prefix wins, and of mounts stacked on one point the top one.
// - remount keeps the mount's nosuid, nodev, noexec, noatime and similar
//   flags; it changes only read-only versus read-write. Going read-only fails
//   with "Device or resource busy" while a file there is open for writing.
// - The space figures are bytes: total, free (also for root) and available
//   (to unprivileged users), as statvfs reports them at that moment.
class ORVANE_API Partition {
  public:
    // Every mount of this process's namespace, in the kernel's order
    // (parents before the mounts on them). False (logged) when
    // /proc/self/mountinfo cannot be read; `mounts` is then empty.
    static bool list(std::vector<MountInfo>* mounts);
    // The mount holding the existing `path`. False (logged) when the path
    // cannot be resolved or the table cannot be read.
    static bool mountOf(const std::string& path, MountInfo* info);

    // Size, free bytes and bytes available to unprivileged users of the file
    // system holding `path`; -1 (logged) on error.
    static int64_t totalBytes(const std::string& path);
    // Free bytes of the file system holding `path`; -1 (logged) on error.
    static int64_t freeBytes(const std::string& path);
    // Bytes available to unprivileged users; -1 (logged) on error.
    static int64_t availableBytes(const std::string& path);
    // Whether the file system holding `path` is mounted read-only; false
    // (logged) also when statvfs fails.
    static bool isReadOnly(const std::string& path);

    // mount(2) of `source` (a device, or a name such as "none") of type
    // `fsType` on the directory `target`, with MS_* `flags` and the file
    // system's option text `data` ("size=16m", "" for none).
    static bool mount(const std::string& source, const std::string& target,
                      const std::string& fsType, unsigned long flags = 0,
                      const std::string& data = "");
    // umount2(2) of `target`; `lazy` detaches it at once and lets it go when
    // no longer busy (MNT_DETACH).
    static bool unmount(const std::string& target, bool lazy = false);
    // Remounts the mount at `target` read-only (true) or read-write (false).
    static bool remount(const std::string& target, bool readOnly);
    // syncfs(2) of the file system holding `path`: waits until its dirty data
    // is on the device. An empty `path` syncs every file system (sync(2)).
    static bool sync(const std::string& path);
};

}  // namespace orvane
