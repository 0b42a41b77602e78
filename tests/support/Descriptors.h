#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

namespace orvane {
namespace test {

// Whether `fd` is an open descriptor of this process.
inline bool isOpenFd(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

// What /proc says descriptor `fd` refers to ("socket:[123]",
// "anon_inode:[eventpoll]", a path), or "" when it is not open.
inline std::string fdTarget(int fd) {
    char target[PATH_MAX] = {};
    std::string link = "/proc/self/fd/" + std::to_string(fd);
    ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
    return n < 0 ? std::string() : std::string(target, static_cast<size_t>(n));
}

// The open descriptors of this process, in ascending order.
inline std::vector<int> openFds() {
    std::vector<int> fds;
    DIR* dir = ::opendir("/proc/self/fd");
    if (dir == nullptr) return fds;
    int own = ::dirfd(dir);
    while (dirent* entry = ::readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        int fd = static_cast<int>(std::strtol(entry->d_name, nullptr, 10));
        if (fd != own) fds.push_back(fd);
    }
    ::closedir(dir);
    std::sort(fds.begin(), fds.end());
    return fds;
}

// The descriptors open now that were not open in `before` (from openFds()).
inline std::vector<int> fdsOpenedSince(const std::vector<int>& before) {
    std::vector<int> now = openFds();
    std::vector<int> added;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                        std::back_inserter(added));
    return added;
}

}  // namespace test
}  // namespace orvane
