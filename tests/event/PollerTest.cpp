#include <fcntl.h>
#include <orvane/Poller.h>

#include "event/EventSupport.h"

namespace orvane::test {
namespace {

TEST(Poller, RefusesBadRegistrationsCutsTheTimeoutAndReleasesItsDescriptor) {
    int a[2], b[2];
    ASSERT_TRUE(pipe2(a, O_CLOEXEC) == 0 && pipe2(b, O_CLOEXEC) == 0);
    expectNoLeak([&] {
        Poller poller;
        // Opening again keeps capacity and mode; no mode 2, no duplicate, room for two.
        ASSERT_TRUE(!poller.open(0, false) && poller.open(2, true) && poller.open(5, false));
        EXPECT_TRUE(!poller.addEvent(PollEvent(a[0], 2)) && poller.addEvent(PollEvent(a[0], 0)));
        EXPECT_TRUE(!poller.addEvent(PollEvent(a[0], 0)) && poller.addEvent(PollEvent(b[1], 1)));
        EXPECT_FALSE(poller.addEvent(PollEvent(b[0], 0)));
        EXPECT_TRUE(poller.removeEvent(PollEvent(b[1], 1)) && poller.addEvent(PollEvent(b[0], 0)));
        auto start = Clock::now();
        for (int us : {-1, 999, 1500}) EXPECT_TRUE(poller.waitEvent(us).empty());
        EXPECT_LT(msSince(start), 200);  // 0, 0 and 1 ms, not microseconds taken for milliseconds
        start = Clock::now();
        EXPECT_TRUE(poller.waitEvent(60999).empty());
        const double took = msSince(start);
        EXPECT_TRUE(took >= 59.5 && took < 400) << took << " ms";  // 60 ms, not 609
        // Taken before the writer's pause, however late this thread runs.
        start = Clock::now();
        std::thread writer([&] { EXPECT_EQ((sleepMs(30), write(a[1], "x", 1)), 1); });
        EXPECT_EQ(poller.waitEvent(-1000).size(), 1u);  // no limit: until the write
        EXPECT_GE(msSince(start), 25);
        writer.join();
        EXPECT_TRUE(poller.waitEvent(0).empty());  // edge-triggered: reported once
        poller.close();
        EXPECT_TRUE(poller.waitEvent(-1000).empty());  // closed: at once, empty
    });
    for (int fd : {a[0], a[1], b[0], b[1]}) ::close(fd);
}

}  // namespace
}  // namespace orvane::test
