#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <orvane/Directory.h>
#include <orvane/FilePath.h>
#include <orvane/UniqueFd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include "io/MakeDirs.h"
#include "log/LogLine.h"

namespace orvane {

namespace {
// mkdir that accepts an existing directory when `existingOk`; errno-style result.
int makeOne(const std::string& path, unsigned int mode, bool existingOk) {
    if (::mkdir(path.c_str(), static_cast<mode_t>(mode)) == 0) return 0;
    int err = errno;
    if (err == EEXIST && existingOk) return Directory::exists(path) ? 0 : ENOTDIR;
    return err;
}

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

// The names in the open directory `dirFd` ("." and ".." left out), sorted.
// The descriptor stays open and owned by the caller. 0 or an errno value.
int readNames(int dirFd, std::vector<std::string>* names) {
    int copy = ::fcntl(dirFd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return errno;
    std::unique_ptr<DIR, DirCloser> dir(::fdopendir(copy));
    if (!dir) {
        int err = errno;
        ::close(copy);
        return err;
    }
    ::rewinddir(dir.get());
    names->clear();
    errno = 0;
    while (dirent* entry = ::readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            names->emplace_back(entry->d_name);
        }
    }
    if (errno != 0) return errno;
    std::sort(names->begin(), names->end());
    return 0;
}

// An error of a tree walk: the errno and the path (relative to the walk's
// top, or absolute) where it happened.
struct WalkError {
    int err = 0;
    std::string where;
    bool set(int e, const std::string& path) {
        err = e;
        where = path;
        return false;
    }
};

std::string under(const std::string& dir, const std::string& name) {
    return dir.empty() || dir.back() == '/' ? dir + name : dir + "/" + name;
}

bool listAt(int dirFd, const std::string& prefix, const std::string& shown, bool recursive,
            const std::string& pattern, std::vector<std::string>* entries, WalkError* error) {
    std::vector<std::string> names;
    int err = readNames(dirFd, &names);
    if (err != 0) return error->set(err, shown);
    for (const std::string& name : names) {
        if (pattern.empty() || ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0) {
            entries->push_back(prefix + name);
        }
        if (!recursive) continue;
        struct stat st;
        if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            return error->set(errno, under(shown, name));
        }
        if (!S_ISDIR(st.st_mode)) continue;
        UniqueFd child(::openat(dirFd, name.c_str(), kDirFlags));
        if (!child) return error->set(errno, under(shown, name));
        if (!listAt(child.get(), prefix + name + "/", under(shown, name), recursive, pattern,
                    entries, error)) {
            return false;
        }
    }
    return true;
}

// Removes everything inside the open directory `dirFd` (on device `dev`).
bool removeContents(int dirFd, dev_t dev, const std::string& shown, WalkError* error) {
    std::vector<std::string> names;
    int err = readNames(dirFd, &names);
    if (err != 0) return error->set(err, shown);
    for (const std::string& name : names) {
        std::string path = under(shown, name);
        struct stat st;
        if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) continue;  // gone meanwhile
            return error->set(errno, path);
        }
        if (S_ISDIR(st.st_mode)) {
            if (st.st_dev != dev) return error->set(EXDEV, path);
            UniqueFd child(::openat(dirFd, name.c_str(), kDirFlags));
            if (!child) return error->set(errno, path);
            if (!removeContents(child.get(), dev, path, error)) return false;
        }
        if (::unlinkat(dirFd, name.c_str(), S_ISDIR(st.st_mode) ? AT_REMOVEDIR : 0) != 0) {
            return error->set(errno, path);
        }
    }
    return true;
}

bool removeTree(const std::string& path, WalkError* error) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
        return errno == ENOENT ? true : error->set(errno, path);
    }
    if (S_ISDIR(st.st_mode)) {
        UniqueFd dir(::open(path.c_str(), kDirFlags));
        if (!dir) return error->set(errno, path);
        struct stat opened;
        if (::fstat(dir.get(), &opened) != 0) return error->set(errno, path);
        if (!removeContents(dir.get(), opened.st_dev, path, error)) return false;
        if (::rmdir(path.c_str()) != 0) return error->set(errno, path);
        return true;
    }
    if (::unlink(path.c_str()) != 0) return error->set(errno, path);
    return true;
}

// Copies the regular file `src` (open) to the new file `name` in `dstDirFd`.
bool copyFileData(int srcFd, int dstDirFd, const std::string& name, const struct stat& st,
                  const std::string& shown, WalkError* error) {
    UniqueFd out(::openat(dstDirFd, name.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out) return error->set(errno, shown);
    std::vector<char> buf(64 * 1024);
    for (;;) {
        ssize_t n = ::read(srcFd, buf.data(), buf.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return error->set(errno, shown);
        if (n == 0) break;
        for (ssize_t done = 0; done < n;) {
            ssize_t w = ::write(out.get(), buf.data() + done, static_cast<size_t>(n - done));
            if (w < 0 && errno == EINTR) continue;
            if (w < 0) return error->set(errno, shown);
            done += w;
        }
    }
    const timespec times[2] = {st.st_atim, st.st_mtim};
    if (::fchmod(out.get(), st.st_mode & 07777) != 0 || ::futimens(out.get(), times) != 0) {
        return error->set(errno, shown);
    }
    return true;
}

// Copies the entry `name` of `srcDirFd` to the new entry `name` of
// `dstDirFd`; for a directory, with everything below it. Devices and sockets
// are skipped with a warning.
bool copyEntry(int srcDirFd, const std::string& srcName, int dstDirFd, const std::string& dstName,
               const std::string& shown, WalkError* error) {
    struct stat st;
    if (::fstatat(srcDirFd, srcName.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return error->set(errno, shown);
    }
    const timespec times[2] = {st.st_atim, st.st_mtim};
    if (S_ISREG(st.st_mode)) {
        UniqueFd in(::openat(srcDirFd, srcName.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        if (!in) return error->set(errno, shown);
        return copyFileData(in.get(), dstDirFd, dstName, st, shown, error);
    }
    if (S_ISLNK(st.st_mode)) {
        std::vector<char> target(static_cast<size_t>(st.st_size) + 1);
        ssize_t n = ::readlinkat(srcDirFd, srcName.c_str(), target.data(), target.size());
        if (n < 0) return error->set(errno, shown);
        std::string text(target.data(), static_cast<size_t>(n));
        if (::symlinkat(text.c_str(), dstDirFd, dstName.c_str()) != 0 ||
            ::utimensat(dstDirFd, dstName.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
            return error->set(errno, shown);
        }
        return true;
    }
    if (S_ISFIFO(st.st_mode)) {
        if (::mkfifoat(dstDirFd, dstName.c_str(), st.st_mode & 07777) != 0 ||
            ::utimensat(dstDirFd, dstName.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
            return error->set(errno, shown);
        }
        return true;
    }
    if (!S_ISDIR(st.st_mode)) {
        ORVANE_SWARN_IN("copy", "skipping special file(%s)", shown.c_str());
        return true;
    }
    UniqueFd src(::openat(srcDirFd, srcName.c_str(), kDirFlags));
    if (!src) return error->set(errno, shown);
    // Created owner-writable so that the contents fit in; its mode follows.
    if (::mkdirat(dstDirFd, dstName.c_str(), 0700) != 0) return error->set(errno, shown);
    UniqueFd dst(::openat(dstDirFd, dstName.c_str(), kDirFlags));
    if (!dst) return error->set(errno, shown);
    std::vector<std::string> names;
    int err = readNames(src.get(), &names);
    if (err != 0) return error->set(err, shown);
    for (const std::string& name : names) {
        if (!copyEntry(src.get(), name, dst.get(), name, under(shown, name), error)) return false;
    }
    if (::fchmod(dst.get(), st.st_mode & 07777) != 0 || ::futimens(dst.get(), times) != 0) {
        return error->set(errno, shown);
    }
    return true;
}

// Copies the entry `from` (not followed when a link) to the path `to`, which
// must not exist. A failed copy is removed, unless it failed because `to`
// appeared meanwhile: that one is someone else's.
bool copyToNew(const std::string& from, const std::string& to, const std::string& shown,
               WalkError* error) {
    struct stat st;
    if (::lstat(to.c_str(), &st) == 0) return error->set(EEXIST, to);
    if (copyEntry(AT_FDCWD, from, AT_FDCWD, to, shown, error)) return true;
    WalkError ignored;
    if (error->err != EEXIST) removeTree(to, &ignored);
    return false;
}

// Copies `from` (followed when a link) to the path `to`, which must not
// exist; removes a partial copy.
bool copyTree(const std::string& from, const std::string& to, WalkError* error) {
    struct stat st;
    if (::lstat(to.c_str(), &st) == 0) return error->set(EEXIST, to);  // before `from`'s errors
    // The caller's own path may be a link: copy what it names.
    if (::stat(from.c_str(), &st) != 0) return error->set(errno, from);
    std::string source = from;
    if (S_ISDIR(st.st_mode)) {
        // A copy inside its own source would copy itself without end.
        FilePath real = FilePath(from).realPath();
        FilePath target = FilePath(to).absolute();
        FilePath targetParent =
            target.parent().isDirectory() ? target.parent().realPath() : FilePath();
        if (!real.empty() && !targetParent.empty() &&
            (targetParent / target.fileName()).toString().rfind(real.toString() + "/", 0) == 0) {
            return error->set(EINVAL, to);
        }
        source = from + "/.";
    }
    return copyToNew(source, to, from, error);
}

bool sizeAt(int dirFd, const std::string& shown, std::set<std::pair<dev_t, ino_t>>* seen,
            int64_t* total, WalkError* error) {
    std::vector<std::string> names;
    int err = readNames(dirFd, &names);
    if (err != 0) return error->set(err, shown);
    for (const std::string& name : names) {
        struct stat st;
        if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            return error->set(errno, under(shown, name));
        }
        if (S_ISREG(st.st_mode)) {
            if (st.st_nlink < 2 || seen->insert({st.st_dev, st.st_ino}).second) {
                *total += st.st_size;
            }
        } else if (S_ISDIR(st.st_mode)) {
            UniqueFd child(::openat(dirFd, name.c_str(), kDirFlags));
            if (!child) return error->set(errno, under(shown, name));
            if (!sizeAt(child.get(), under(shown, name), seen, total, error)) return false;
        }
    }
    return true;
}

}  // namespace

bool Directory::exists(const std::string& path) {
    struct stat st;
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

namespace detail {

int makeDirs(const std::string& path, unsigned int mode, bool parents, std::string* failed) {
    *failed = path;
    if (!parents) return makeOne(path, mode, false);
    // Every prefix that ends before a '/', then the whole path.
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        if (path[slash - 1] == '/') continue;
        *failed = path.substr(0, slash);
        int err = makeOne(*failed, mode, true);
        if (err != 0) return err;
    }
    *failed = path;
    return makeOne(path, mode, true);
}

}  // namespace detail

bool Directory::createDir(const std::string& path, unsigned int mode, bool parents) {
    if (path.empty()) {
        ORVANE_SERROR("directory name is empty!");
        return false;
    }
    std::string failed;
    int err = detail::makeDirs(path, mode, parents, &failed);
    if (err != 0) {
        ORVANE_SERROR("create dir(%s) error: %s!", failed.c_str(), strerror(err));
        return false;
    }
    return true;
}

bool Directory::list(const std::string& path, std::vector<std::string>* entries, bool recursive,
                     const std::string& pattern) {
    if (path.empty() || entries == nullptr) {
        ORVANE_SERROR("param error: path(%s), entries(%p)!", path.c_str(),
                      static_cast<void*>(entries));
        return false;
    }
    entries->clear();
    UniqueFd dir(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    WalkError error;
    if (!dir) {
        error.set(errno, path);
    } else if (listAt(dir.get(), "", path, recursive, pattern, entries, &error)) {
        return true;
    }
    ORVANE_SERROR("list dir(%s) error: %s!", error.where.c_str(), strerror(error.err));
    return false;
}

bool Directory::remove(const std::string& path) {
    if (path.empty()) {
        ORVANE_SERROR("directory name is empty!");
        return false;
    }
    WalkError error;
    if (removeTree(path, &error)) return true;
    if (error.err == EXDEV) {
        ORVANE_SERROR("remove dir(%s) error: %s is another file system's mount point!",
                      path.c_str(), error.where.c_str());
    } else {
        ORVANE_SERROR("remove dir(%s) error at %s: %s!", path.c_str(), error.where.c_str(),
                      strerror(error.err));
    }
    return false;
}

bool Directory::rename(const std::string& from, const std::string& to) {
    if (from.empty() || to.empty()) {
        ORVANE_SERROR("param error: from(%s), to(%s)!", from.c_str(), to.c_str());
        return false;
    }
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    int err = errno;
    struct stat st;
    if (err == EINVAL && ::lstat(to.c_str(), &st) != 0) {
        // A file system without RENAME_NOREPLACE: checked above, then replaced.
        if (::rename(from.c_str(), to.c_str()) == 0) return true;
        err = errno;
    }
    if (err != EXDEV) {
        ORVANE_SERROR("rename(%s)->(%s) error: %s!", from.c_str(), to.c_str(), strerror(err));
        return false;
    }
    WalkError error;
    if (copyToNew(from, to, from, &error) && removeTree(from, &error)) return true;
    ORVANE_SERROR("move(%s)->(%s) error at %s: %s!", from.c_str(), to.c_str(), error.where.c_str(),
                  strerror(error.err));
    return false;
}

bool Directory::copy(const std::string& from, const std::string& to) {
    if (from.empty() || to.empty()) {
        ORVANE_SERROR("param error: from(%s), to(%s)!", from.c_str(), to.c_str());
        return false;
    }
    WalkError error;
    if (copyTree(from, to, &error)) return true;
    ORVANE_SERROR("copy(%s)->(%s) error at %s: %s!", from.c_str(), to.c_str(), error.where.c_str(),
                  strerror(error.err));
    return false;
}

std::string Directory::createTemp(const std::string& parent, const std::string& prefix) {
    if (prefix.find('/') != std::string::npos) {
        ORVANE_SERROR("prefix(%s) must not hold a '/'!", prefix.c_str());
        return "";
    }
    std::string pattern = under(parent.empty() ? "/tmp" : parent, prefix + "XXXXXX");
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (::mkdtemp(name.data()) == nullptr) {
        int err = errno;
        ORVANE_SERROR("mkdtemp(%s) error: %s!", pattern.c_str(), strerror(err));
        return "";
    }
    return std::string(name.data());
}

int64_t Directory::totalSize(const std::string& path) {
    if (path.empty()) {
        ORVANE_SERROR("directory name is empty!");
        return -1;
    }
    WalkError error;
    struct stat st;
    int64_t total = 0;
    std::set<std::pair<dev_t, ino_t>> seen;
    if (::stat(path.c_str(), &st) != 0) {
        error.set(errno, path);
    } else if (S_ISREG(st.st_mode)) {
        return st.st_size;
    } else {
        UniqueFd dir(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!dir) {
            error.set(errno, path);
        } else if (sizeAt(dir.get(), path, &seen, &total, &error)) {
            return total;
        }
    }
    ORVANE_SERROR("size of dir(%s) error at %s: %s!", path.c_str(), error.where.c_str(),
                  strerror(error.err));
    return -1;
}

}  // namespace orvane
