#include <gtest/gtest.h>
#include <orvane/Delayer.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "event/EventSupport.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using test::Clock;
using test::msSince;

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Counts calls and remembers when the last one came.
struct Shot {
    std::atomic<int> calls{0};
    std::atomic<double> atMs{-1};
    Clock::time_point origin = Clock::now();

    std::function<void()> fn() {
        return [this] {
            atMs = msSince(origin);
            ++calls;
        };
    }
    bool waitCalls(int n, int timeoutMs) {
        auto start = Clock::now();
        while (calls < n) {
            if (msSince(start) > timeoutMs) return false;
            sleepMs(2);
        }
        return true;
    }
};

TEST(Delayer, ZeroDelayFiresAtOnceAndCanBeArmedAgain) {
    test::LogCapture::get();
    int threads = test::countTasks();
    Delayer delayer;
    Shot first, second;
    std::thread::id caller = std::this_thread::get_id();
    std::atomic<bool> onOtherThread{false};
    EXPECT_TRUE(delayer.start(0, [&] {
        onOtherThread = std::this_thread::get_id() != caller;
        first.fn()();
    }));
    ASSERT_TRUE(first.waitCalls(1, 1000));
    EXPECT_LT(first.atMs, 150);
    EXPECT_TRUE(onOtherThread);
    EXPECT_TRUE(test::waitTaskCount(threads));  // the task ends after firing
    EXPECT_FALSE(delayer.reset());              // idle again
    EXPECT_TRUE(delayer.stop());

    EXPECT_TRUE(delayer.start(0, second.fn()));
    ASSERT_TRUE(second.waitCalls(1, 1000));
    EXPECT_EQ(first.calls, 1);
}

TEST(Delayer, ResetRestartsTheCountdown) {
    Delayer delayer;
    Shot shot;
    EXPECT_TRUE(delayer.start(1, shot.fn()));
    sleepMs(500);
    EXPECT_TRUE(delayer.reset());
    ASSERT_TRUE(shot.waitCalls(1, 3000));
    EXPECT_GE(shot.atMs, 1490);  // 0.5 s + a fresh 1 s
    EXPECT_LT(shot.atMs, 2200);
}

TEST(Delayer, StartingAgainReplacesTheFunctionAndRestartsTheCountdown) {
    Delayer delayer;
    Shot replaced, kept;
    EXPECT_TRUE(delayer.start(1, replaced.fn()));
    sleepMs(300);
    kept.origin = replaced.origin;
    EXPECT_TRUE(delayer.start(1, kept.fn()));
    ASSERT_TRUE(kept.waitCalls(1, 3000));
    EXPECT_GE(kept.atMs, 1290);
    EXPECT_LT(kept.atMs, 2000);
    sleepMs(150);
    EXPECT_EQ(replaced.calls, 0);
    EXPECT_EQ(kept.calls, 1);
}

TEST(Delayer, StopAndDestructionFireAWaitingFunctionAtOnce) {
    test::LogCapture::get();
    int threads = test::countTasks();
    std::atomic<bool> finished{false};
    Delayer delayer;
    EXPECT_TRUE(delayer.stop());  // never started
    EXPECT_TRUE(delayer.start(60, [&] {
        sleepMs(30);
        finished = true;
    }));
    sleepMs(20);
    auto start = Clock::now();
    EXPECT_TRUE(delayer.stop());
    EXPECT_TRUE(finished);  // stop returns after the function returned
    EXPECT_LT(msSince(start), 400);
    EXPECT_TRUE(delayer.stop());  // idle again
    EXPECT_TRUE(test::waitTaskCount(threads));

    Shot shot;
    start = Clock::now();
    {
        Delayer doomed;
        doomed.start(60, shot.fn());
    }
    EXPECT_EQ(shot.calls, 1);
    EXPECT_LT(msSince(start), 400);
    EXPECT_TRUE(test::waitTaskCount(threads));
}

TEST(Delayer, ReportsAFunctionThatThrowsOnceAndKeepsWorking) {
    auto& capture = test::LogCapture::get();
    Delayer delayer;
    delayer.start(0, nullptr);  // an empty function throws bad_function_call
    sleepMs(150);
    EXPECT_FALSE(delayer.stop());
    EXPECT_EQ(capture.waitLine("stop delayer error"),
              "<E>DATE [Delayer::stop,L#] stop delayer error: bad_function_call");
    EXPECT_TRUE(delayer.stop());

    // A throw that nobody collected is reported by the next start, which then arms anew.
    delayer.start(0, [] { throw std::runtime_error("sensor gone"); });
    sleepMs(150);
    Shot shot;
    EXPECT_TRUE(delayer.start(0, shot.fn()));
    EXPECT_EQ(capture.waitLine("sensor gone"),
              "<E>DATE [Delayer::stop,L#] stop delayer error: sensor gone");
    ASSERT_TRUE(shot.waitCalls(1, 1000));
    EXPECT_TRUE(delayer.stop());
    EXPECT_EQ(capture.matching("stop delayer error").size(), 2u);
}

TEST(Delayer, FunctionMayArmItsOwnDelayerAgain) {
    Delayer delayer;
    Shot second;
    std::atomic<int> firstCalls{0};
    delayer.start(0, [&] {
        ++firstCalls;
        delayer.start(0, second.fn());
    });
    ASSERT_TRUE(second.waitCalls(1, 1000));
    EXPECT_EQ(firstCalls, 1);
    EXPECT_TRUE(delayer.stop());
}

}  // namespace
}  // namespace orvane
