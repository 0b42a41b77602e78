#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/EventLoop.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "event/EventSupport.h"
#include "support/LogCapture.h"

namespace orvane::test {
namespace {

struct SocketPair {
    int fd[2] = {-1, -1};
    SocketPair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fd), 0); }
    ~SocketPair() {
        for (int f : fd)
            if (f >= 0) ::close(f);
    }
    void closeEnd(int i) {
        ::close(fd[i]);
        fd[i] = -1;
    }
};

int taskIdOfLoop(EventLoop& loop) {
    std::atomic<int> tid{0};
    loop.post([&tid] { tid = static_cast<int>(syscall(SYS_gettid)); });
    eventually([&tid] { return tid.load() != 0; });
    return tid;
}

// Voluntary context switches of one thread of this process: how often it slept.
long sleepsOf(int taskId) {
    std::ifstream status("/proc/self/task/" + std::to_string(taskId) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("voluntary_ctxt_switches:", 0) == 0) return std::stol(line.substr(24));
    }
    return -1;
}

TEST(EventLoop, CallsHandlersForDataAndHangUpAndForgetsUnwatchedDescriptors) {
    SocketPair pair;
    EventLoop loop("loop-test");
    std::mutex mutex;
    std::vector<unsigned> seen;
    std::string received;
    ASSERT_TRUE(loop.watch(pair.fd[0], EventLoop::READABLE, [&](int fd, unsigned events) {
        char buf[64];
        ssize_t n = ::read(fd, buf, sizeof buf);
        std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(events);
        if (n > 0) received.append(buf, static_cast<size_t>(n));
        if (n == 0) loop.unwatch(fd);  // the peer is gone: no further call
    }));
    ASSERT_TRUE(loop.start());
    ASSERT_EQ(::write(pair.fd[1], "abc", 3), 3);
    ASSERT_TRUE(eventually([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return received == "abc";
    }));
    EXPECT_EQ(loop.sources(), 1);
    pair.closeEnd(1);
    ASSERT_TRUE(eventually([&] { return loop.sources() == 0; }));
    sleepMs(20);
    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(seen.size(), 2u);  // data, then end of stream: nothing after the unwatch
    EXPECT_EQ(seen[0], unsigned(EventLoop::READABLE));
    EXPECT_EQ(seen[1], unsigned(EventLoop::READABLE | EventLoop::HANGUP));
}

TEST(EventLoop, RunsPostsAndChangesFromOtherThreadsInOrderOnItsThread) {
    EventLoop loop;
    std::vector<int> order;
    std::atomic<bool> allOnLoop{true};
    // Queued before the loop runs: applied in call order when it starts.
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(loop.post([&, i] {
            order.push_back(i);
            if (!loop.isInLoopThread()) allOnLoop = false;
        }));
    }
    EXPECT_FALSE(loop.isInLoopThread());
    ASSERT_TRUE(loop.start());
    std::vector<std::thread> posters;
    std::atomic<int> fromThreads{0};
    posters.reserve(4);
    for (int t = 0; t < 4; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < 100; ++i) loop.post([&] { ++fromThreads; });
        });
    }
    for (auto& poster : posters) poster.join();
    EXPECT_TRUE(eventually([&] { return fromThreads.load() == 400; }));
    loop.stop();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
    EXPECT_TRUE(allOnLoop.load());
}

TEST(EventLoop, PeriodicTimerFiresWithoutWakingTheLoopBetweenExpiries) {
    EventLoop loop;
    ASSERT_TRUE(loop.start());
    int tid = taskIdOfLoop(loop);
    long sleepsBefore = sleepsOf(tid);
    std::atomic<int> ticks{0}, once{0};
    int periodic = loop.addTimer(50, 50, [&] { ++ticks; });
    ASSERT_GT(periodic, 0);
    ASSERT_GT(loop.addTimer(10, 0, [&] { ++once; }), 0);
    ASSERT_TRUE(eventually([&] { return ticks.load() >= 4; }));
    EXPECT_TRUE(loop.cancelTimer(periodic));
    long sleeps = sleepsOf(tid) - sleepsBefore;
    int ticksAtCancel = ticks;
    sleepMs(120);
    EXPECT_LE(ticks.load(), ticksAtCancel + 1);  // at most one that was already due
    EXPECT_EQ(once.load(), 1);
    // About one sleep per expiry plus the posts; a loop that polled would
    // sleep tens of times in 200 ms.
    EXPECT_LT(sleeps, 15) << "the loop thread slept " << sleeps << " times";
}

TEST(EventLoop, TimerCancelsItselfAndStopComesFromAHandler) {
    EventLoop loop;
    std::atomic<int> ticks{0};
    int id = 0;
    id = loop.addTimer(5, 5, [&] {
        if (++ticks == 3) {
            loop.cancelTimer(id);
            loop.addTimer(20, 0, [&] { loop.stop(); });
        }
    });
    ASSERT_GT(id, 0);
    auto started = Clock::now();
    EXPECT_TRUE(loop.run());  // on this thread until the one-shot timer stops it
    EXPECT_EQ(ticks.load(), 3);
    EXPECT_LT(msSince(started), 2000);
    EXPECT_FALSE(loop.isInLoopThread());
}

TEST(EventLoop, RefusesBadRequestsWithALogLineEach) {
    LogCapture& log = LogCapture::fresh();
    EventLoop loop;
    auto noop = [](int, unsigned) {};
    EXPECT_FALSE(loop.watch(-1, EventLoop::READABLE, noop));
    EXPECT_FALSE(loop.watch(0, EventLoop::HANGUP, noop));
    EXPECT_FALSE(loop.watch(0, EventLoop::READABLE, nullptr));
    EXPECT_EQ(loop.addTimer(0, 10, [] {}), -1);
    EXPECT_EQ(loop.addTimer(10, -1, [] {}), -1);
    EXPECT_FALSE(loop.cancelTimer(12345));
    EXPECT_FALSE(loop.post(nullptr));
    EXPECT_TRUE(log.waitFor("[EventLoop::watch,", 3000, 3));
    EXPECT_TRUE(log.waitFor("[EventLoop::addTimer,", 3000, 2));
    EXPECT_TRUE(log.waitFor("unknown timer 12345"));
    EXPECT_TRUE(log.waitFor("[EventLoop::post,"));

    // On the loop's thread the kernel's answer is the result.
    std::atomic<int> results{-1};
    loop.post([&] {
        bool closedFd = loop.watch(9999, EventLoop::READABLE, [](int, unsigned) {});
        bool unknown = loop.unwatch(9998);
        results = (closedFd ? 1 : 0) + (unknown ? 2 : 0);
        loop.stop();
    });
    EXPECT_TRUE(loop.run());
    EXPECT_EQ(results.load(), 0);
    EXPECT_TRUE(log.waitFor("epoll_ctl(9999) error: Bad file descriptor"));
    EXPECT_TRUE(log.waitFor("fd 9998 is not watched"));
}

TEST(EventLoop, StopBeforeRunAndOwnThreadLeaveNoThreadOrDescriptor) {
    size_t threads = threadCount();
    int fds = openFdCount();
    {
        EventLoop loop("loop-own");
        ASSERT_TRUE(loop.isValid());
        loop.stop();  // before run(): the next run returns at once
        EXPECT_TRUE(loop.run());
        ASSERT_TRUE(loop.start());
        EXPECT_FALSE(loop.start());
        EXPECT_FALSE(loop.run());  // already running on its own thread
        EXPECT_GT(loop.addTimer(1000, 1000, [] {}), 0);
        auto started = Clock::now();
        loop.stop();
        EXPECT_LT(msSince(started), 500);
        ASSERT_TRUE(loop.start());  // a stopped loop starts again
    }
    EXPECT_TRUE(eventually([&] { return threadCount() == threads; }));
    EXPECT_EQ(openFdCount(), fds);
}

}  // namespace
}  // namespace orvane::test
