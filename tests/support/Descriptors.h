#pragma once

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "support/ProcTasks.h"

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
    std::vector<int> fds = procEntries("/proc/self/fd", true);
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
