#include <orvane/Delayer.h>

#include "event/EventSupport.h"

namespace orvane::test {
namespace {

// Pauses pauseMs, then counts the call.
struct Shot {
    int pauseMs = 0;
    std::atomic<int> calls{0};
    void operator()() {
        sleepMs(pauseMs);
        ++calls;
    }
};

TEST(Delayer, StopAndDestructionFireAWaitingFunctionAtOnce) {
    auto& capture = LogCapture::fresh();  // counted below
    expectNoLeak([&] {
        auto start = Clock::now();
        Shot stopped{30}, destroyed, after;
        Delayer delayer;
        EXPECT_TRUE(delayer.start(60, std::ref(stopped)));
        sleepMs(20);
        EXPECT_TRUE(delayer.reset());  // a waiting countdown starts again
        EXPECT_TRUE(delayer.stop());
        EXPECT_EQ(stopped.calls, 1);  // stop returns after the function returned
        {
            Delayer doomed;
            doomed.start(60, std::ref(destroyed));
        }
        EXPECT_EQ(destroyed.calls, 1);
        EXPECT_LT(msSince(start), 500);  // both at once, not after a minute

        // A function fired by stop() cannot arm its delayer again: it stays stopped.
        std::atomic<int> rearmed{-1};
        delayer.start(60, [&] { rearmed = delayer.start(60, [] {}) ? 1 : 0; });
        EXPECT_TRUE(delayer.stop());
        EXPECT_EQ(rearmed, 0);
        EXPECT_TRUE(delayer.stop());    // idle
        EXPECT_FALSE(delayer.reset());  // nothing waits

        // A function that throws (an empty one does) is reported once, by the
        // next stop or start; the delayer then works on.
        delayer.start(0, nullptr);
        sleepMs(150);
        EXPECT_TRUE(delayer.start(0, std::ref(after)));
        EXPECT_EQ(capture.waitLine("stop delayer error"),
                  "<E>DATE [Delayer::stop,L#] stop delayer error: bad_function_call");
        EXPECT_TRUE(delayer.stop());
        EXPECT_EQ(after.calls, 1);
        EXPECT_EQ(capture.matching("stop delayer error").size(), 1u);
    });
}

}  // namespace
}  // namespace orvane::test
