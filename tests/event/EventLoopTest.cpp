#include <orvane/EventLoop.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <algorithm>
#include <fstream>

#include "event/EventSupport.h"

namespace orvane::test {
namespace {

// Voluntary context switches of one thread of this process: how often it slept.
long sleepsOf(long taskId) {
    std::ifstream status("/proc/self/task/" + std::to_string(taskId) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("voluntary_ctxt_switches:", 0) == 0) return std::stol(line.substr(24));
    }
    return -1;
}

// On the caller's thread: the handler closes the peer after the data, then
// unwatches at the end of stream (a level-triggered loop would call it
// again); a periodic timer cancels itself on its fourth tick and a one-shot
// timer then stops the loop. The thread sleeps once per wake-up, not polling.
TEST(EventLoop, RunsHandlersAndTimersOnTheCallersThreadWithoutPolling) {
    int fd[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fd), 0);
    EventLoop loop;
    std::vector<unsigned> seen;
    std::string received;
    ASSERT_TRUE(loop.watch(fd[0], EventLoop::READABLE, [&](int ready, unsigned events) {
        char buf[64];
        ssize_t n = ::read(ready, buf, sizeof buf);
        seen.push_back(events);
        received.append(buf, static_cast<size_t>(std::max<ssize_t>(n, 0)));
        EXPECT_EQ(loop.sources(), 1);  // the timers are not counted
        if (n > 0) ::close(fd[1]);
        if (n == 0 && !loop.unwatch(ready)) ADD_FAILURE() << "unwatch refused";
    }));
    auto started = Clock::now();  // before the timers are armed
    int ticks = 0, once = 0, periodic = 0;
    periodic = loop.addTimer(20, 20, [&] {
        if (++ticks == 4) {
            loop.cancelTimer(periodic);
            loop.addTimer(60, 0, [&] { loop.stop(); });
        }
    });
    ASSERT_GT(loop.addTimer(10, 0, [&] { ++once; }), 0);
    ASSERT_EQ(::write(fd[1], "abc", 3), 3);
    long self = syscall(SYS_gettid), sleepsBefore = sleepsOf(self);
    EXPECT_TRUE(loop.run());
    long sleeps = sleepsOf(self) - sleepsBefore;
    ::close(fd[0]);
    EXPECT_EQ(received, "abc");
    EXPECT_EQ(loop.sources(), 0);
    EXPECT_EQ(seen, (std::vector<unsigned>{EventLoop::READABLE,
                                           EventLoop::READABLE | EventLoop::HANGUP}));
    EXPECT_EQ(ticks, 4);  // none in the 60 ms after the cancel
    EXPECT_EQ(once, 1);
    EXPECT_GE(msSince(started), 135);
    // A loop that polled would sleep tens of times in 140 ms.
    EXPECT_LT(sleeps, 15) << "the loop thread slept " << sleeps << " times";
}

TEST(EventLoop, RefusesBadRequestsWithALogLineEach) {
    EventLoop loop;
    auto noop = [](int, unsigned) {};
    expectRefusal([&] { return loop.watch(-1, EventLoop::READABLE, noop); },
                  "<E>DATE [EventLoop::watch,L#] bad source: fd -1, interest 0x1");
    expectRefusal([&] { return loop.cancelTimer(12345); },
                  "<E>DATE [EventLoop::cancelTimer,L#] unknown timer 12345");

    // On the loop's thread the kernel's answer is the result.
    std::vector<std::string> lines = LogCapture::get().linesDuring([&] {
        loop.post([&] {
            EXPECT_FALSE(loop.watch(9999, EventLoop::READABLE, noop));
            EXPECT_FALSE(loop.unwatch(9998));
            loop.stop();
        });
        EXPECT_TRUE(loop.run());
    });
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "<E>DATE [EventLoop::watch,L#] epoll_ctl(9999) error: Bad file descriptor",
                         "<E>DATE [EventLoop::unwatch,L#] fd 9998 is not watched"}));
}

TEST(EventLoop, RunsPostsInCallOrderOnItsOwnThreadAndLeavesNothingBehind) {
    std::vector<int> order;
    std::atomic<int> offLoop{0};
    expectNoLeak([&] {
        EventLoop loop("loop-own");
        loop.stop();  // before run(): the next run returns at once
        EXPECT_TRUE(loop.run());
        auto note = [&](int i) {
            order.push_back(i);
            offLoop += loop.isInLoopThread() ? 0 : 1;
        };
        EXPECT_TRUE(loop.post([&] { note(0); }));  // queued before the loop runs
        ASSERT_TRUE(loop.start());
        EXPECT_FALSE(loop.start());
        EXPECT_FALSE(loop.run());  // already running on its own thread
        std::thread poster([&] {
            for (int i = 1; i <= 200; ++i) loop.post([&, i] { note(i); });
        });
        poster.join();
        EXPECT_GT(loop.addTimer(1000, 1000, [] {}), 0);
        auto started = Clock::now();
        loop.stop();  // what was posted before it has run when it returns
        EXPECT_LT(msSince(started), 500);
        ASSERT_EQ(order.size(), 201u);
        for (int i = 0; i <= 200; ++i) EXPECT_EQ(order[size_t(i)], i);
        EXPECT_EQ(offLoop.load(), 0);
        ASSERT_TRUE(loop.start());  // a stopped loop starts again
    });
}

}  // namespace
}  // namespace orvane::test
