#pragma once

#include <chrono>
#include <thread>

namespace orvane::test {

// Polls `done` every millisecond until it holds or `timeoutMs` passed;
// returns its last answer. For waiting on other threads without fixed sleeps.
template <class Pred>
bool eventually(Pred done, int timeoutMs = 3000) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace orvane::test
