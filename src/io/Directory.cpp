#include <errno.h>
#include <orvane/Directory.h>
#include <string.h>
#include <sys/stat.h>

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

}  // namespace orvane
