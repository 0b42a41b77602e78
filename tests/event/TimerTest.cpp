#include <orvane/Timer.h>
#include <sys/timerfd.h>

#include "event/EventSupport.h"

namespace orvane::test {
namespace {

// Checks the id of every firing, counts them and keeps when, after its creation, the last came.
struct Recorder : TimerListener {
    explicit Recorder(int expectedId) : id(expectedId) {}
    void onTimer(int firedId) override {
        EXPECT_EQ(firedId, id);
        lastMs = msSince(origin);
        ++count;
    }
    // Waits for n firings; firing k (from 1) came no earlier than k periods after creation.
    void expectFirings(int n, double periodMs) {
        ASSERT_TRUE(eventually([&] { return count >= n; }));
        int seen = count;
        EXPECT_GE(lastMs, seen * periodMs - 0.5);  // lastMs is of firing `seen` or later
    }

    const int id;
    const Clock::time_point origin = Clock::now();
    std::atomic<int> count{0};
    std::atomic<double> lastMs{0};
};

// Every kind of timer fires periodically from its start (a Timer from its
// registration, not its construction) and once when one-shot; destroyed
// while it runs, none leaves a thread or descriptor behind.
TEST(Timers, FirePeriodicallyFromTheirStartAndOnceForOneShot) {
    expectNoLeak([] {
        Timer once(5, false), every(10, true);
        sleepMs(20);
        Recorder real(7), high(3), managed(0), oneShot(0);
        TimerManager manager;
        RTimer rTimer(real, 7);
        HRTimer hrTimer(high, 3);
        expectRefusal([] { return RTimer(nullptr, 4).start(10, true); },
                      "<E>DATE [RTimer::start,L#] param error, id:4, timeout:10, listener:0x0");
        ASSERT_TRUE(manager.start() && manager.registerTimer(once, [&] { oneShot.onTimer(0); }));
        ASSERT_TRUE(manager.registerTimer(every, [&] { managed.onTimer(0); }));
        EXPECT_FALSE(manager.registerTimer(every, [&] { managed.onTimer(1); }));  // duplicate
        ASSERT_TRUE(rTimer.start(20, true) && rTimer.start(10, true));  // a running one anew
        ASSERT_TRUE(hrTimer.start(10, true));
        for (Recorder* recorder : {&real, &high, &managed}) recorder->expectFirings(8, 10);
        oneShot.expectFirings(1, 5);
        manager.unregisterTimer(every);
        EXPECT_TRUE(rTimer.stop() && hrTimer.stop());
        int r = real.count, h = high.count, m = managed.count;
        sleepMs(30);  // stopped for good: no firing counted below
        EXPECT_TRUE(managed.count <= m + 1 && oneShot.count == 1);  // but the pass that was running

        ASSERT_TRUE(rTimer.start(5, false) && hrTimer.start(5, false));
        ASSERT_TRUE(eventually([&] { return real.count > r && high.count > h; }));
        sleepMs(30);
        EXPECT_EQ(real.count + high.count, r + h + 2);  // one call each
        ASSERT_TRUE(rTimer.start(1, true) &&
                    manager.registerTimer(every, [&] { real.onTimer(7); }));
    });
}

// Descriptor 0 (standard input closed) counts as not open: Poller::close()
// forgets an epoll 0 without closing it and open() makes another;
// HRTimer::stop() takes a timerfd 0 as no timer and leaves it armed.
TEST(PollerAndHRTimer, TakeDescriptorZeroAsNotOpen) {
    EXPECT_TRUE(succeedsInChild([] {
        ::close(0);
        bool ok = false;
        {
            Poller poller;
            ok = poller.open(1, false) && (poller.close(), fdTarget(0) == "anon_inode:[eventpoll]");
            std::vector<int> before = openFds();  // 0 forgotten, still open
            ok = ok && poller.open(1, false) && fdsOpenedSince(before).size() == 1;
        }  // closes the second epoll only
        ok = ok && fdTarget(0) == "anon_inode:[eventpoll]";
        ::close(0);
        Recorder listener(1);
        HRTimer timer(listener, 1);
        itimerspec left{};
        return ok && timer.start(60000, false) && fdTarget(0) == "anon_inode:[timerfd]" &&
               (timer.stop(), ::timerfd_gettime(0, &left) == 0) && left.it_value.tv_sec > 0;
    }));
}

}  // namespace
}  // namespace orvane::test
