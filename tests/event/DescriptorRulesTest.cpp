#include <gtest/gtest.h>
#include <orvane/Poller.h>
#include <orvane/Timer.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"

namespace orvane {
namespace {

long countTargets(const std::string& target) {
    auto fds = test::openFds();
    return std::count_if(fds.begin(), fds.end(),
                         [&](int fd) { return test::fdTarget(fd) == target; });
}

// Poller takes an epoll descriptor 0 (standard input closed) as "not open":
// close() forgets it without closing it, and open() makes a second epoll.
TEST(PollerDescriptors, ForgetsAnEpollDescriptorZeroWithoutClosingIt) {
    const std::string epoll = "anon_inode:[eventpoll]";
    EXPECT_TRUE(test::succeedsInChild([&] {
        ::close(0);
        long others = countTargets(epoll);
        bool ok = false;
        {
            Poller poller;
            ok = poller.open(1, false) && test::fdTarget(0) == epoll;
            poller.close();
            ok = ok && test::fdTarget(0) == epoll;  // forgotten, still open
            ::close(0);
            ok = ok && poller.open(1, false) && test::fdTarget(0) == epoll;
            ok = ok && poller.open(1, false) && countTargets(epoll) == others + 2;
        }
        // The destructor closed the second one only.
        return ok && countTargets(epoll) == others + 1 && test::fdTarget(0) == epoll;
    }));
}

// HRTimer::stop() takes a timerfd of 0 as no timer and leaves it armed.
TEST(HRTimerDescriptors, StopLeavesATimerfdZeroArmed) {
    EXPECT_TRUE(test::succeedsInChild([] {
        struct Quiet : TimerListener {
            void onTimer(int) override {}
        } listener;
        ::close(0);
        HRTimer timer(listener, 1);
        if (!timer.start(60000, false) || test::fdTarget(0) != "anon_inode:[timerfd]") {
            return false;
        }
        timer.stop();
        itimerspec left{};
        return ::timerfd_gettime(0, &left) == 0 && left.it_value.tv_sec > 0;
    }));
}

}  // namespace
}  // namespace orvane
