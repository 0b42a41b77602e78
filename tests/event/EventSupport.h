#pragma once

// What the event tests share: the clock helpers and the support headers.

#include <atomic>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/Refusal.h"

namespace orvane::test {

using Clock = std::chrono::steady_clock;

inline double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

inline void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Runs `body` and checks that every thread and descriptor it started is gone.
inline void expectNoLeak(const std::function<void()>& body) {
    LogCapture::get();  // its sink thread starts once, before the count
    size_t threads = threadCount();
    const std::vector<int> fds = openFds();
    body();
    EXPECT_TRUE(eventually([&] { return threadCount() == threads; }));
    EXPECT_EQ(fdsOpenedSince(fds), std::vector<int>());
}

}  // namespace orvane::test
