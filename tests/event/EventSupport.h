#pragma once

#include <chrono>
#include <thread>

#include "support/Eventually.h"
#include "support/ProcTasks.h"

namespace orvane::test {

using Clock = std::chrono::steady_clock;

inline double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

inline void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

}  // namespace orvane::test
