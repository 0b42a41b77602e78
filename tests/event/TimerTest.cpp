#include <gtest/gtest.h>
#include <orvane/Timer.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "event/EventSupport.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using test::Clock;
using test::msBetween;
using test::msSince;

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Records the time of every firing and the ids it was called with.
class Recorder : public TimerListener {
  public:
    void onTimer(int id) override {
        std::lock_guard<std::mutex> lock(mutex);
        times.push_back(Clock::now());
        ids.push_back(id);
    }
    void record() { onTimer(0); }
    size_t count() {
        std::lock_guard<std::mutex> lock(mutex);
        return times.size();
    }
    std::vector<Clock::time_point> snapshot() {
        std::lock_guard<std::mutex> lock(mutex);
        return times;
    }
    bool waitCount(size_t n, int timeoutMs = 2000) {
        auto start = Clock::now();
        while (count() < n) {
            if (msSince(start) > timeoutMs) return false;
            sleepMs(1);
        }
        return true;
    }

    std::mutex mutex;
    std::vector<Clock::time_point> times;
    std::vector<int> ids;
};

// Every firing k (from 1) came no earlier than k periods after `start`.
void expectNeverEarly(const std::vector<Clock::time_point>& times, Clock::time_point start,
                      double periodMs) {
    for (size_t k = 0; k < times.size(); ++k) {
        EXPECT_GE(msBetween(start, times[k]), (static_cast<double>(k) + 1) * periodMs - 0.5)
            << "firing " << k + 1;
    }
}

// Runs a 10 ms periodic RTimer or HRTimer for 8 firings and stops it: every
// firing in phase and never early, the right id, nothing after stop().
template <class TimerType>
void expectPeriodicRun(TimerType& timer, Recorder& recorder, int id) {
    size_t before = recorder.count();
    auto started = Clock::now();
    ASSERT_TRUE(timer.start(10, true));
    ASSERT_TRUE(recorder.waitCount(before + 8));
    EXPECT_TRUE(timer.stop());
    auto times = recorder.snapshot();
    times.erase(times.begin(), times.begin() + static_cast<long>(before));
    expectNeverEarly(times, started, 10);
    EXPECT_LT(msBetween(started, times[7]), 1000);
    for (int seen : recorder.ids) EXPECT_EQ(seen, id);
    size_t count = recorder.count();
    sleepMs(20);
    EXPECT_EQ(recorder.count(), count);  // stopped for good
}

TEST(Timer, OneShotFiresOnceAndResetDoesNotRearmIt) {
    int calls = 0;
    auto count = [&calls] { ++calls; };

    Timer negative(-5, false);
    EXPECT_TRUE(negative.checkTimeout(count));
    Timer never(0, true);
    EXPECT_TRUE(never.checkTimeout(count));  // fired from the start
    never.reset(5, true);                    // a periodic reset re-arms even this one
    EXPECT_FALSE(never.checkTimeout(count));
    EXPECT_EQ(calls, 0);

    Timer once(15, false);
    EXPECT_FALSE(once.checkTimeout(count));
    sleepMs(20);
    EXPECT_TRUE(once.checkTimeout(count));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(once.checkTimeout(count));  // done: true, nothing called
    once.reset(5, false);
    once.reset(0, false);
    sleepMs(10);
    EXPECT_TRUE(once.checkTimeout(count));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(once.checkTimeout(nullptr));  // an empty callback is allowed

    // A periodic timer stays fired until reset re-arms it.
    Timer periodic(5, true);
    sleepMs(8);
    EXPECT_TRUE(periodic.checkTimeout(count));
    EXPECT_TRUE(periodic.checkTimeout(count));
    EXPECT_EQ(calls, 2);
    periodic.reset(0, false);
    EXPECT_FALSE(periodic.checkTimeout(count));
}

TEST(TimerManager, FiresOneShotAndPeriodicTimersOnItsThread) {
    TimerManager manager;
    ASSERT_TRUE(manager.start());
    Recorder oneShot, periodic, never;
    std::atomic<int> threadOk{0};
    std::thread::id caller = std::this_thread::get_id();

    Timer once(5, false), every(10, true), disabled(0, true);
    sleepMs(20);  // registration, not construction, starts the period
    auto registered = Clock::now();
    ASSERT_TRUE(manager.registerTimer(once, [&] {
        oneShot.record();
        if (std::this_thread::get_id() != caller) ++threadOk;
    }));
    ASSERT_TRUE(manager.registerTimer(every, [&] { periodic.record(); }));
    ASSERT_TRUE(manager.registerTimer(disabled, [&] { never.record(); }));
    EXPECT_FALSE(manager.registerTimer(once, [&] { never.record(); }));  // already there

    ASSERT_TRUE(periodic.waitCount(10));
    manager.unregisterTimer(every);
    size_t fired = periodic.count();
    sleepMs(40);
    EXPECT_LE(periodic.count(), fired + 1);  // at most the pass that was running

    ASSERT_EQ(oneShot.count(), 1u);
    EXPECT_EQ(threadOk, 1);
    double firstMs = msBetween(registered, oneShot.snapshot()[0]);
    EXPECT_GE(firstMs, 4.5);
    EXPECT_LT(firstMs, 500);
    EXPECT_EQ(never.count(), 0u);

    // Each period starts from the pass that fired: never early, at most once a pass.
    auto times = periodic.snapshot();
    expectNeverEarly(times, registered, 10);
    for (size_t k = 1; k < times.size(); ++k) {
        EXPECT_GE(msBetween(times[k - 1], times[k]), 9.5) << "interval " << k;
    }
    EXPECT_LT(msBetween(registered, times[9]), 1000);

    // A periodic timer registered again after unregistering runs anew.
    ASSERT_TRUE(manager.registerTimer(every, [&] { periodic.record(); }));
    EXPECT_TRUE(periodic.waitCount(fired + 3));
    EXPECT_TRUE(manager.stop());
}

TEST(TimerManager, StopsIdleOrBusyAndLeavesNoThread) {
    test::LogCapture::get();
    int threads = test::countTasks();
    {
        TimerManager idle;
        EXPECT_TRUE(idle.stop());              // never started
        idle.unregisterTimer(Timer(5, true));  // unknown: ignored
    }
    Recorder fired;
    Timer every(2, true);
    {
        TimerManager manager;
        ASSERT_TRUE(manager.start());
        EXPECT_TRUE(manager.start());  // already running
        EXPECT_TRUE(test::waitTaskCount(1, 2000, "TimerManager"));
        manager.registerTimer(every, [&] { fired.record(); });
        ASSERT_TRUE(fired.waitCount(3));
        // Destroyed while its thread runs and a timer is registered.
    }
    EXPECT_TRUE(test::waitTaskCount(threads));
    size_t count = fired.count();
    sleepMs(10);
    EXPECT_EQ(fired.count(), count);

    // Stopped and started again, it carries on with the same timers.
    TimerManager manager;
    ASSERT_TRUE(manager.start());
    manager.registerTimer(every, [&] { fired.record(); });
    ASSERT_TRUE(fired.waitCount(count + 2));
    EXPECT_TRUE(manager.stop());
    EXPECT_TRUE(manager.start());
    EXPECT_TRUE(fired.waitCount(count + 4));
    EXPECT_TRUE(manager.stop());
    EXPECT_TRUE(manager.stop());
}

TEST(RTimer, RejectsBadParametersWithItsParamErrorLine) {
    auto& capture = test::LogCapture::get();
    Recorder listener;
    RTimer zero(listener, 1);
    EXPECT_FALSE(zero.start(0, true));
    std::string line = capture.waitLine("param error, id:1, timeout:0");
    EXPECT_EQ(line.rfind("<E>DATE [RTimer::start,L#] param error, id:1, timeout:0, listener:0x", 0),
              0u)
        << line;

    RTimer negativeId(listener, -3);
    EXPECT_FALSE(negativeId.start(10, true));
    EXPECT_NE(capture.waitLine("param error, id:-3, timeout:10, listener:0x"), "");

    RTimer negativePeriod(listener, 2);
    EXPECT_FALSE(negativePeriod.start(-10, false));
    EXPECT_NE(capture.waitLine("param error, id:2, timeout:-10, listener:0x"), "");

    RTimer noListener(nullptr, 4);
    EXPECT_FALSE(noListener.start(10, true));
    EXPECT_EQ(capture.waitLine("param error, id:4"),
              "<E>DATE [RTimer::start,L#] param error, id:4, timeout:10, listener:0x0");
    EXPECT_TRUE(noListener.stop());  // never started
    EXPECT_EQ(listener.count(), 0u);
}

TEST(RTimer, FiresPeriodicallyInPhaseAndOnceForOneShot) {
    test::LogCapture::get();
    int threads = test::countTasks();
    Recorder periodic;
    RTimer timer(periodic, 7);
    expectPeriodicRun(timer, periodic, 7);

    // One-shot: one call, and its thread ends by itself.
    Recorder once;
    RTimer oneShot(once, 8);
    auto started = Clock::now();
    ASSERT_TRUE(oneShot.start(15, false));
    ASSERT_TRUE(once.waitCount(1));
    EXPECT_GE(msBetween(started, once.snapshot()[0]), 14.5);
    EXPECT_TRUE(test::waitTaskCount(threads));
    sleepMs(30);
    EXPECT_EQ(once.count(), 1u);

    // Started again, a one-shot fires again; a running timer started again restarts.
    ASSERT_TRUE(oneShot.start(5, true));
    ASSERT_TRUE(oneShot.start(5, false));
    ASSERT_TRUE(once.waitCount(2));
    EXPECT_TRUE(test::waitTaskCount(threads));
    EXPECT_EQ(once.count(), 2u);
}

// Voluntary context switches per second of the thread named "RTimer".
double rTimerWakeupsPerSecond(int periodMs) {
    Recorder listener;
    RTimer timer(listener, 1);
    EXPECT_TRUE(timer.start(periodMs, true));
    int tid = 0;
    EXPECT_TRUE(test::waitTaskCount(1, 2000, "RTimer", &tid));
    long before = test::voluntarySwitches(tid);
    auto start = Clock::now();
    sleepMs(200);
    long after = test::voluntarySwitches(tid);
    double seconds = msSince(start) / 1000;
    timer.stop();
    return static_cast<double>(after - before) / seconds;
}

TEST(RTimer, SleepsInStepsSetByItsPeriod) {
    // 1 ms steps below 100 ms, a hundredth of the period up to 1 s, 10 ms beyond.
    double fast = rTimerWakeupsPerSecond(50);
    double medium = rTimerWakeupsPerSecond(500);
    double slow = rTimerWakeupsPerSecond(20000);
    EXPECT_GT(fast, 500) << "1 ms steps";
    EXPECT_GT(medium, 100) << "5 ms steps";
    EXPECT_LT(medium, 260) << "5 ms steps";
    EXPECT_GT(slow, 50) << "10 ms steps";
    EXPECT_LT(slow, 130) << "10 ms steps";
}

TEST(RTimer, DestroyedWhileRunningLeavesNoThread) {
    test::LogCapture::get();
    int threads = test::countTasks();
    Recorder listener;
    {
        RTimer timer(listener, 1);
        ASSERT_TRUE(timer.start(1, true));
        ASSERT_TRUE(listener.waitCount(2));
    }
    EXPECT_TRUE(test::waitTaskCount(threads));
    size_t count = listener.count();
    sleepMs(5);
    EXPECT_EQ(listener.count(), count);
}

TEST(HRTimer, FiresPeriodicallyAndOnceForOneShot) {
    test::LogCapture::get();
    int fds = test::openFdCount();
    int threads = test::countTasks();
    Recorder periodic;
    {
        HRTimer timer(periodic, 3);
        expectPeriodicRun(timer, periodic, 3);
        EXPECT_EQ(test::openFdCount(), fds + 2);  // timerfd and epoll
        EXPECT_TRUE(test::waitTaskCount(threads));

        // Started again on the same descriptor, as a one-shot: exactly one call.
        size_t count = periodic.count();
        auto started = Clock::now();
        ASSERT_TRUE(timer.start(10, false));
        EXPECT_EQ(test::openFdCount(), fds + 2);
        ASSERT_TRUE(periodic.waitCount(count + 1));
        EXPECT_GE(msBetween(started, periodic.snapshot()[count]), 9.5);
        sleepMs(40);
        EXPECT_EQ(periodic.count(), count + 1);
        // Destroyed while its thread still polls.
    }
    EXPECT_TRUE(test::waitTaskCount(threads));
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(HRTimer, RefusesBadParametersSilently) {
    auto& capture = test::LogCapture::get();
    int fds = test::openFdCount();
    Recorder listener;
    HRTimer timer(listener, -1);
    EXPECT_TRUE(timer.stop());  // never started
    EXPECT_FALSE(timer.start(0, true));
    EXPECT_FALSE(timer.start(-5, false));
    EXPECT_EQ(test::openFdCount(), fds);  // nothing set up yet
    HRTimer noListener(nullptr, 1);
    EXPECT_FALSE(noListener.start(10, true));
    EXPECT_EQ(test::openFdCount(), fds);
    // A negative id is only a label.
    ASSERT_TRUE(timer.start(5, true));
    ASSERT_TRUE(listener.waitCount(2));
    EXPECT_EQ(listener.ids[0], -1);
    EXPECT_TRUE(timer.stop());
    EXPECT_TRUE(capture.matching("HRTimer::start").empty());
}

}  // namespace
}  // namespace orvane
