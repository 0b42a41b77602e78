#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <iterator>
#include <thread>

namespace orvane::test {

using Clock = std::chrono::steady_clock;

inline double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

inline void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Polls `done` every millisecond; false when it still fails after timeoutMs.
inline bool waitUntil(const std::function<bool()>& done, int timeoutMs = 2000) {
    auto start = Clock::now();
    while (!done()) {
        if (msSince(start) > timeoutMs) return false;
        sleepMs(1);
    }
    return true;
}

// The number of this process's threads.
inline long countTasks() {
    using std::filesystem::directory_iterator;
    return std::distance(directory_iterator("/proc/self/task"), directory_iterator());
}

}  // namespace orvane::test
