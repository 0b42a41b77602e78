#include <orvane/EventLoop.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "event/EventSupport.h"

namespace orvane::test {
namespace {

// Voluntary context switches of the calling thread: how often it slept.
long sleepsSoFar() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

// On the caller's thread: the handler closes the peer after the data, then
// unwatches at the end of stream (a level-triggered loop would call it
// again); a periodic timer cancels itself on its fourth tick and a one-shot
// timer then stops the loop. The thread sleeps once per wake-up, not polling.
// Bad requests are refused; on the loop's thread the kernel's answer is the
// result.
TEST(EventLoop, RunsHandlersAndTimersOnTheCallersThreadWithoutPolling) {
    int fd[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fd), 0);
    EventLoop loop;
    std::vector<unsigned> seen;
    std::string received;
    auto noop = [](int, unsigned) {};
    expectRefusal([&] { return loop.watch(-1, EventLoop::READABLE, noop); },
                  "<E>DATE [EventLoop::watch,L#] bad source: fd -1, interest 0x1");
    ASSERT_TRUE(loop.watch(fd[0], EventLoop::READABLE, [&](int ready, unsigned events) {
        char buf[64];
        ssize_t n = ::read(ready, buf, sizeof buf);
        seen.push_back(events);
        received.append(buf, static_cast<size_t>(std::max<ssize_t>(n, 0)));
        if (n > 0) ::close(fd[1]);
        if (n == 0 && !loop.unwatch(ready)) ADD_FAILURE() << "unwatch refused";
    }));
    auto started = Clock::now();  // before the timers are armed
    int ticks = 0, refused = 0;
    int periodic = loop.addTimer(20, 20, [&] {
        if (++ticks == 4) {
            loop.cancelTimer(periodic);
            loop.addTimer(60, 0, [&] { loop.stop(); });
        }
    });
    ASSERT_GT(loop.addTimer(10, 0,
                            [&] {
                                refused += !loop.watch(9999, EventLoop::READABLE, noop) &&
                                           !loop.unwatch(9998);
                            }),
              0);
    ASSERT_EQ(::write(fd[1], "abc", 3), 3);
    long sleepsBefore = sleepsSoFar();
    EXPECT_TRUE(loop.run());
    long sleeps = sleepsSoFar() - sleepsBefore;
    ::close(fd[0]);
    // No tick in the 60 ms after the cancel.
    EXPECT_EQ(std::make_tuple(received, loop.sources(), ticks, refused, seen),
              std::make_tuple(std::string("abc"), 0, 4, 1,
                              std::vector<unsigned>{EventLoop::READABLE,
                                                    EventLoop::READABLE | EventLoop::HANGUP}));
    EXPECT_GE(msSince(started), 135);
    // A loop that polled would sleep tens of times in 140 ms.
    EXPECT_LT(sleeps, 15) << "the loop thread slept " << sleeps << " times";
}

TEST(EventLoop, RunsPostsInCallOrderOnItsOwnThreadAndLeavesNothingBehind) {
    std::vector<int> order;
    expectNoLeak([&] {
        EventLoop loop("loop-own");
        loop.stop();  // before run(): the next run returns at once
        EXPECT_TRUE(loop.run());
        auto note = [&](int i) { order.push_back(loop.isInLoopThread() ? i : -1); };
        EXPECT_TRUE(loop.post([&] { note(0); }));  // queued before the loop runs
        ASSERT_TRUE(loop.start());
        EXPECT_FALSE(loop.start() || loop.run());  // already running on its own thread
        std::thread([&] {
            for (int i = 1; i <= 200; ++i) loop.post([&, i] { note(i); });
        }).join();
        EXPECT_GT(loop.addTimer(1000, 1000, [] {}), 0);
        auto started = Clock::now();
        loop.stop();  // what was posted before it has run when it returns
        EXPECT_LT(msSince(started), 500);
        // 0 to 200, each once, in order, and none off the loop's thread (-1)
        EXPECT_TRUE(order.size() == 201u && order[0] == 0 &&
                    std::is_sorted(order.begin(), order.end(), std::less_equal<int>()));
        ASSERT_TRUE(loop.start());  // a stopped loop starts again
    });
}

}  // namespace
}  // namespace orvane::test
