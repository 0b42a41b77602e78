#pragma once

#include <orvane/Export.h>

#include <string>

namespace orvane {

// Keeps file systems and files read-only except while they are updated, so
// that a crash or a stray write cannot damage configuration or firmware.
//
// As a scope guard it makes the mount holding a path writable for the
// guard's lifetime:
//
//     {
//         FileWriteProtection writable("/config/network.conf");
//         if (!writable.isWritable()) return false;        // refusal logged
//         File::rename("/config/network.new", "/config/network.conf");
//     }   // synced, and read-only again (if it was read-only before)
//
// and its static operations protect single files:
//
//     FileWriteProtection::protect("/config/calibration.bin");
//     FileWriteProtection::release("/config/calibration.bin");  // before updating it
//
// The guard remounts read-write only a mount that is read-only, and only
// such a mount is remounted read-only again (after syncfs) when the guard
// ends or restore() is called; a mount that was writable is left alone, so
// nested guards on one mount are safe. Guards are not counted across
// objects (no global state): two threads that need one mount writable at the
// same time share one guard, or the first to finish makes it read-only under
// the other. Remounting needs CAP_SYS_ADMIN; without it the guard logs the
// refusal and isWritable() is false.
//
// A single file is protected with the immutable attribute (chattr +i,
// ioctl FS_IOC_SETFLAGS) where the file system has it (ext2/3/4, f2fs, xfs,
// btrfs, tmpfs): then not even root may write, rename or delete it. Setting
// or clearing it needs CAP_LINUX_IMMUTABLE; without it the call logs the
// refusal and fails. Where the file system has no such attribute (vfat,
// ramfs...) the write bits are taken away instead (chmod a-w), which stops
// other users but not root; release() then gives back the owner's write bit
// only (u+w), the mode before protect() is not kept.
//
// Failures are logged once and reported by result. The guard is used by one
// thread; the static operations are safe from any thread. Costs: the guard
// reads /proc/self/mountinfo once and remounts (which syncs the file system
// on the way to read-only: it may take as long as writing back the dirty data).
class ORVANE_API FileWriteProtection {
  public:
    // Makes the mount holding the existing `path` writable (see above).
    explicit FileWriteProtection(const std::string& path);
    // restore().
    ~FileWriteProtection();
    FileWriteProtection(const FileWriteProtection&) = delete;
    FileWriteProtection& operator=(const FileWriteProtection&) = delete;

    // True when the mount is writable through this guard (it was writable
    // already, or the remount succeeded) and restore() has not run.
    bool isWritable() const { return writable_; }
    // The mount point the guard works on; empty when the path had none.
    const std::string& mountPoint() const { return mountPoint_; }
    // Syncs and remounts read-only if the guard made the mount writable;
    // true when nothing was to be done. A failure (a file still open for
    // writing: "Device or resource busy") leaves the mount writable; calling
    // it again retries.
    bool restore();

    // Makes the regular file `path` unwritable: immutable attribute, else
    // no write bits. A link is refused, not followed.
    static bool protect(const std::string& path);
    // Undoes protect(): clears the immutable attribute, or gives the owner
    // the write bit back.
    static bool release(const std::string& path);
    // True when `path` carries the immutable attribute or has no write bit;
    // false (logged) also when it cannot be examined.
    static bool isProtected(const std::string& path);

  private:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    std::string mountPoint_;
    bool writable_;
    bool remounted_;
};

}  // namespace orvane
