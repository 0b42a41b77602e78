#include <errno.h>
#include <fcntl.h>
#include <orvane/FilePath.h>
#include <orvane/Partition.h>
#include <orvane/UniqueFd.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "log/LogLine.h"

namespace orvane {

namespace {

constexpr const char* kMountInfo = "/proc/self/mountinfo";

bool isOctal(char c) { return c >= '0' && c <= '7'; }

// A mountinfo field with its \ooo escapes decoded.
std::string unescape(const std::string& field) {
    std::string out;
    out.reserve(field.size());
    for (size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
            isOctal(field[i + 2]) && isOctal(field[i + 3])) {
            out.push_back(static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                            (field[i + 3] - '0')));
            i += 3;
        } else {
            out.push_back(field[i]);
        }
    }
    return out;
}

// One mountinfo line: "36 35 98:0 /root /mnt rw,noatime [optional...] - ext3 /dev/sda rw".
bool parseLine(const std::string& line, MountInfo* info) {
    std::istringstream in(line);
    std::string devText, field;
    if (!(in >> info->mountId >> info->parentId >> devText >> info->root >> info->mountPoint >>
          info->options)) {
        return false;
    }
    // The kernel writes two small decimal numbers here.
    // NOLINTNEXTLINE(cert-err34-c)
    if (sscanf(devText.c_str(), "%u:%u", &info->major, &info->minor) != 2) return false;
    while (in >> field && field != "-") {
    }
    if (field != "-" || !(in >> info->fsType >> info->source)) return false;
    in >> info->superOptions;  // absent on some old kernels
    info->root = unescape(info->root);
    info->mountPoint = unescape(info->mountPoint);
    info->fsType = unescape(info->fsType);
    info->source = unescape(info->source);
    return true;
}

bool firstOptionIsRo(const std::string& options) {
    return options == "ro" || options.compare(0, 3, "ro,") == 0;
}

// `prefix` is `path` or a directory above it.
bool isUnder(const std::string& path, const std::string& prefix) {
    if (prefix == "/") return true;
    return path.compare(0, prefix.size(), prefix) == 0 &&
           (path.size() == prefix.size() || path[prefix.size()] == '/');
}

// statvfs of `path`, logging a failure for `method`.
bool statFs(const char* method, const std::string& path, struct statvfs* st) {
    if (path.empty()) {
        ORVANE_SERROR_IN(method, "path is empty!");
        return false;
    }
    if (::statvfs(path.c_str(), st) != 0) {
        int err = errno;
        ORVANE_SERROR_IN(method, "statvfs(%s) error: %s!", path.c_str(), strerror(err));
        return false;
    }
    return true;
}

// A block count of statvfs(`path`) in bytes; -1, logged for `method`, on failure.
int64_t statFsBytes(const char* method, const std::string& path, fsblkcnt_t statvfs::*count) {
    struct statvfs st;
    if (!statFs(method, path, &st)) return -1;
    return static_cast<int64_t>(st.*count) * static_cast<int64_t>(st.f_frsize);
}

// The MS_* flags of a mount that a remount must repeat to keep them.
unsigned long keptFlags(unsigned long stFlags) {
    static const struct {
        unsigned long st, ms;
    } kFlags[] = {{ST_NOSUID, MS_NOSUID},           {ST_NODEV, MS_NODEV},
                  {ST_NOEXEC, MS_NOEXEC},           {ST_NOATIME, MS_NOATIME},
                  {ST_NODIRATIME, MS_NODIRATIME},   {ST_RELATIME, MS_RELATIME},
                  {ST_SYNCHRONOUS, MS_SYNCHRONOUS}, {ST_MANDLOCK, MS_MANDLOCK}};
    unsigned long out = 0;
    for (const auto& f : kFlags) {
        if ((stFlags & f.st) != 0) out |= f.ms;
    }
    return out;
}

}  // namespace

bool MountInfo::readOnly() const {
    return firstOptionIsRo(options) || firstOptionIsRo(superOptions);
}

bool Partition::list(std::vector<MountInfo>* mounts) {
    if (mounts == nullptr) {
        ORVANE_SERROR("mounts is null!");
        return false;
    }
    mounts->clear();
    std::ifstream in(kMountInfo);
    if (!in) {
        int err = errno;
        ORVANE_SERROR("open %s error: %s!", kMountInfo, strerror(err));
        return false;
    }
    std::string line;
    while (std::getline(in, line)) {
        MountInfo info;
        if (parseLine(line, &info)) mounts->push_back(std::move(info));
    }
    if (mounts->empty()) {
        ORVANE_SERROR("no mount found in %s!", kMountInfo);
        return false;
    }
    return true;
}

bool Partition::mountOf(const std::string& path, MountInfo* info) {
    if (path.empty() || info == nullptr) {
        ORVANE_SERROR("param error: path(%s), info(%p)!", path.c_str(), static_cast<void*>(info));
        return false;
    }
    FilePath real = FilePath(path).realPath();
    if (real.empty()) return false;
    std::vector<MountInfo> mounts;
    if (!list(&mounts)) return false;
    const MountInfo* best = nullptr;
    for (const MountInfo& m : mounts) {
        if (isUnder(real.toString(), m.mountPoint) &&
            (best == nullptr || m.mountPoint.size() >= best->mountPoint.size())) {
            best = &m;
        }
    }
    if (best == nullptr) {
        ORVANE_SERROR("no mount holds %s!", real.toString().c_str());
        return false;
    }
    *info = *best;
    return true;
}

int64_t Partition::totalBytes(const std::string& path) {
    return statFsBytes(__func__, path, &statvfs::f_blocks);
}

int64_t Partition::freeBytes(const std::string& path) {
    return statFsBytes(__func__, path, &statvfs::f_bfree);
}

int64_t Partition::availableBytes(const std::string& path) {
    return statFsBytes(__func__, path, &statvfs::f_bavail);
}

bool Partition::isReadOnly(const std::string& path) {
    struct statvfs st;
    return statFs(__func__, path, &st) && (st.f_flag & ST_RDONLY) != 0;
}

bool Partition::mount(const std::string& source, const std::string& target,
                      const std::string& fsType, unsigned long flags, const std::string& data) {
    if (target.empty() || (fsType.empty() && (flags & (MS_BIND | MS_MOVE | MS_REMOUNT)) == 0)) {
        ORVANE_SERROR("param error: target(%s), type(%s)!", target.c_str(), fsType.c_str());
        return false;
    }
    if (::mount(source.empty() ? "none" : source.c_str(), target.c_str(),
                fsType.empty() ? nullptr : fsType.c_str(), flags,
                data.empty() ? nullptr : data.c_str()) != 0) {
        int err = errno;
        ORVANE_SERROR("mount %s(%s) on %s error: %s!", source.c_str(), fsType.c_str(),
                      target.c_str(), strerror(err));
        return false;
    }
    return true;
}

bool Partition::unmount(const std::string& target, bool lazy) {
    if (target.empty()) {
        ORVANE_SERROR("target is empty!");
        return false;
    }
    if (::umount2(target.c_str(), lazy ? MNT_DETACH : 0) != 0) {
        int err = errno;
        ORVANE_SERROR("umount %s error: %s!", target.c_str(), strerror(err));
        return false;
    }
    return true;
}

bool Partition::remount(const std::string& target, bool readOnly) {
    struct statvfs st;
    if (!statFs(__func__, target, &st)) return false;
    unsigned long flags = MS_REMOUNT | keptFlags(st.f_flag) | (readOnly ? MS_RDONLY : 0);
    if (::mount(nullptr, target.c_str(), nullptr, flags, nullptr) != 0) {
        int err = errno;
        ORVANE_SERROR("remount %s %s error: %s!", target.c_str(), readOnly ? "ro" : "rw",
                      strerror(err));
        return false;
    }
    return true;
}

bool Partition::sync(const std::string& path) {
    if (path.empty()) {
        ::sync();
        return true;
    }
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd || ::syncfs(fd.get()) != 0) {
        int err = errno;
        ORVANE_SERROR("sync %s error: %s!", path.c_str(), strerror(err));
        return false;
    }
    return true;
}

}  // namespace orvane
