#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <orvane/FileWriteProtection.h>
#include <orvane/Partition.h>
#include <orvane/UniqueFd.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "log/LogLine.h"

namespace orvane {

namespace {

// Errors of FS_IOC_GETFLAGS that mean "this file system has no such flags".
bool noInodeFlags(int err) {
    return err == ENOTTY || err == EOPNOTSUPP || err == EINVAL || err == ENOSYS;
}

// Opens the regular file `path` (not through a link) for an attribute
// change, logging a failure for `method`.
UniqueFd openFile(const char* method, const std::string& path, struct stat* st) {
    if (path.empty()) {
        ORVANE_SERROR_IN(method, "path is empty!");
        return UniqueFd();
    }
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        int err = errno;
        ORVANE_SERROR_IN(method, "open %s error: %s!", path.c_str(), strerror(err));
        return fd;
    }
    if (::fstat(fd.get(), st) != 0 || !S_ISREG(st->st_mode)) {
        ORVANE_SERROR_IN(method, "%s is not a regular file!", path.c_str());
        return UniqueFd();
    }
    return fd;
}

// Sets (or clears) the immutable attribute of `path`, or, where the file
// system has none, clears (or sets) write bits.
bool changeProtection(const char* method, const std::string& path, bool protect) {
    struct stat st;
    UniqueFd fd = openFile(method, path, &st);
    if (!fd) return false;
    int flags = 0;
    if (::ioctl(fd.get(), FS_IOC_GETFLAGS, &flags) == 0) {
        int wanted = protect ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        if (wanted == flags || ::ioctl(fd.get(), FS_IOC_SETFLAGS, &wanted) == 0) return true;
        int err = errno;
        ORVANE_SERROR_IN(method, "%s immutable attribute of %s error: %s!",
                         protect ? "set" : "clear", path.c_str(), strerror(err));
        return false;
    }
    int err = errno;
    if (!noInodeFlags(err)) {
        ORVANE_SERROR_IN(method, "get attributes of %s error: %s!", path.c_str(), strerror(err));
        return false;
    }
    mode_t mode = protect ? (st.st_mode & 07555) : ((st.st_mode & 07777) | S_IWUSR);
    if (::fchmod(fd.get(), mode) != 0) {
        err = errno;
        ORVANE_SERROR_IN(method, "chmod %s to %04o error: %s!", path.c_str(),
                         static_cast<unsigned int>(mode), strerror(err));
        return false;
    }
    return true;
}

}  // namespace

FileWriteProtection::FileWriteProtection(const std::string& path)
    : className("FileWriteProtection"), writable_(false), remounted_(false) {
    MountInfo info;
    if (!Partition::mountOf(path, &info)) return;
    mountPoint_ = info.mountPoint;
    if (!Partition::isReadOnly(mountPoint_)) {
        writable_ = true;
        return;
    }
    if (!Partition::remount(mountPoint_, false)) return;
    writable_ = true;
    remounted_ = true;
    ORVANE_NOTE_IN("FileWriteProtection", "%s is writable until the update ends",
                   mountPoint_.c_str());
}

FileWriteProtection::~FileWriteProtection() { restore(); }

bool FileWriteProtection::restore() {
    if (!remounted_) {
        writable_ = false;
        return true;
    }
    Partition::sync(mountPoint_);
    if (!Partition::remount(mountPoint_, true)) return false;
    remounted_ = false;
    writable_ = false;
    ORVANE_NOTE("%s is read-only again", mountPoint_.c_str());
    return true;
}

bool FileWriteProtection::protect(const std::string& path) {
    return changeProtection(__func__, path, true);
}

bool FileWriteProtection::release(const std::string& path) {
    return changeProtection(__func__, path, false);
}

bool FileWriteProtection::isProtected(const std::string& path) {
    struct stat st;
    UniqueFd fd = openFile(__func__, path, &st);
    if (!fd) return false;
    int flags = 0;
    if (::ioctl(fd.get(), FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_IMMUTABLE_FL) != 0) {
        return true;
    }
    return (st.st_mode & 0222) == 0;
}

}  // namespace orvane
