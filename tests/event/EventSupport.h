#pragma once

#include <dirent.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>

namespace orvane {
namespace test {

using Clock = std::chrono::steady_clock;

inline double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

inline double msBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::milli>(to - from).count();
}

// Kernel task ids of this process's threads named `comm`, or of all when empty.
inline int countTasks(const std::string& comm = std::string(), int* lastTid = nullptr) {
    int count = 0;
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return -1;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        if (!comm.empty()) {
            std::ifstream in(std::string("/proc/self/task/") + entry->d_name + "/comm");
            std::string name;
            std::getline(in, name);
            if (name != comm) continue;
        }
        ++count;
        if (lastTid != nullptr) *lastTid = std::atoi(entry->d_name);
    }
    closedir(dir);
    return count;
}

// Waits up to timeoutMs for the process to have `expected` threads (named `comm`).
inline bool waitTaskCount(int expected, int timeoutMs = 2000,
                          const std::string& comm = std::string(), int* lastTid = nullptr) {
    auto start = Clock::now();
    while (countTasks(comm, lastTid) != expected) {
        if (msSince(start) > timeoutMs) return false;
        struct timespec pause = {0, 1000000};
        nanosleep(&pause, nullptr);
    }
    return true;
}

// The voluntary context switches of one thread so far, or -1.
inline long voluntarySwitches(int tid) {
    std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/status");
    std::string line;
    const std::string key = "voluntary_ctxt_switches:";
    while (std::getline(in, line)) {
        if (line.compare(0, key.size(), key) == 0) return std::atol(line.c_str() + key.size());
    }
    return -1;
}

}  // namespace test
}  // namespace orvane
