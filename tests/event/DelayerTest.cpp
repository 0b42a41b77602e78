#include <orvane/Delayer.h>

#include "event/EventSupport.h"

namespace orvane::test {
namespace {

// A function that pauses pauseMs, then counts its call in `calls`.
std::function<void()> shot(std::atomic<int>& calls, int pauseMs = 0) {
    return [&calls, pauseMs] { calls += (sleepMs(pauseMs), 1); };
}

TEST(Delayer, StopAndDestructionFireAWaitingFunctionAtOnce) {
    auto& capture = LogCapture::fresh();  // counted below
    expectNoLeak([&] {
        auto start = Clock::now();
        std::atomic<int> stopped{0}, destroyed{0}, after{0};
        Delayer delayer;
        EXPECT_TRUE(delayer.start(60, shot(stopped, 30)));
        sleepMs(20);
        EXPECT_TRUE(delayer.reset() && delayer.stop());  // a waiting countdown starts again
        Delayer().start(60, shot(destroyed));            // destroyed at once
        // Both return after the function returned.
        EXPECT_TRUE(stopped == 1 && destroyed == 1);
        EXPECT_LT(msSince(start), 500);  // both at once, not after a minute

        // A function fired by stop() cannot arm its delayer again: it stays stopped.
        std::atomic<int> rearmed{-1};
        delayer.start(60, [&] { rearmed = delayer.start(60, [] {}) ? 1 : 0; });
        EXPECT_TRUE(delayer.stop() && rearmed == 0);
        EXPECT_TRUE(delayer.stop() && !delayer.reset());  // idle: nothing waits

        // A function that throws (an empty one does) is reported once, by the
        // next stop or start; the delayer then works on.
        delayer.start(0, nullptr);
        sleepMs(150);
        EXPECT_TRUE(delayer.start(0, shot(after)));
        EXPECT_EQ(capture.waitLine("stop delayer error"),
                  "<E>DATE [Delayer::stop,L#] stop delayer error: bad_function_call");
        EXPECT_TRUE(delayer.stop() && after == 1);
        EXPECT_EQ(capture.matching("stop delayer error").size(), 1u);
    });
}

}  // namespace
}  // namespace orvane::test
