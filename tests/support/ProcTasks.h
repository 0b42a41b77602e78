#pragma once

#include <dirent.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace orvane::test {

// The numbered entries of a /proc directory (descriptors, tasks) in the
// order the kernel lists them; `withoutOwnFd` leaves out the descriptor
// that reading the directory opens.
inline std::vector<int> procEntries(const char* dir, bool withoutOwnFd = false) {
    std::vector<int> entries;
    DIR* listing = opendir(dir);
    if (listing == nullptr) return entries;
    int own = withoutOwnFd ? dirfd(listing) : -1;
    while (dirent* entry = readdir(listing)) {
        int number = static_cast<int>(strtol(entry->d_name, nullptr, 10));
        if (entry->d_name[0] != '.' && number != own) entries.push_back(number);
    }
    closedir(listing);
    return entries;
}

// The kernel's name of one thread of this process (/proc/self/task/<tid>/comm,
// at most 15 characters), or "" when there is no such thread.
inline std::string threadName(int taskId) {
    std::ifstream comm("/proc/self/task/" + std::to_string(taskId) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

// The kernel names of all threads of this process.
inline std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    for (int id : procEntries("/proc/self/task")) names.push_back(threadName(id));
    return names;
}

// The number of threads of this process.
inline size_t threadCount() { return procEntries("/proc/self/task").size(); }

}  // namespace orvane::test
