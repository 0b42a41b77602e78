#pragma once

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "support/ProcTasks.h"

namespace orvane::test {

// Whether `fd` is an open descriptor of this process.
inline bool isOpenFd(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

// What /proc says descriptor `fd` refers to ("socket:[123]",
// "anon_inode:[eventpoll]", a path), or "" when it is not open.
inline std::string fdTarget(int fd) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error).string();
}

// The open descriptors of this process, in ascending order.
inline std::vector<int> openFds() {
    std::vector<int> fds = procEntries("/proc/self/fd", true);
    std::sort(fds.begin(), fds.end());
    return fds;
}

// The descriptors open now that were not open in `before` (from openFds()).
inline std::vector<int> fdsOpenedSince(const std::vector<int>& before) {
    std::vector<int> now = openFds(), added;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                        std::back_inserter(added));
    return added;
}

}  // namespace orvane::test
