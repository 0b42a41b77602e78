#pragma once

// What the event tests share: the clock helpers and the support headers.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/Eventually.h"
#include "support/ProcTasks.h"
#include "support/Refusal.h"

namespace orvane::test {

using Clock = std::chrono::steady_clock;

inline double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

inline void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

}  // namespace orvane::test
