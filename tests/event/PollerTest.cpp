#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Poller.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "event/EventSupport.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using test::Clock;
using test::msSince;

// A pipe closed by its destructor.
struct Pipe {
    int fds[2] = {-1, -1};
    Pipe() { EXPECT_EQ(pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    void closeEnd(int i) {
        if (fds[i] >= 0) close(fds[i]);
        fds[i] = -1;
    }
    int readFd() const { return fds[0]; }
    int writeFd() const { return fds[1]; }
};

TEST(Poller, KeepsItsFirstCapacityAndReleasesItsDescriptor) {
    int fdsBefore = test::openFdCount();
    {
        Poller poller;
        EXPECT_FALSE(poller.open(0, false));
        EXPECT_EQ(test::openFdCount(), fdsBefore);
        ASSERT_TRUE(poller.open(2, false));
        EXPECT_TRUE(poller.open(5, true));  // already open: capacity stays 2
        EXPECT_EQ(test::openFdCount(), fdsBefore + 1);

        Pipe a, b, c;
        EXPECT_TRUE(poller.addEvent(PollEvent(a.readFd(), 0)));
        EXPECT_TRUE(poller.addEvent(PollEvent(b.readFd(), 0)));
        EXPECT_FALSE(poller.addEvent(PollEvent(c.readFd(), 0)));
        // Removing frees a place.
        EXPECT_TRUE(poller.removeEvent(PollEvent(a.readFd(), 0)));
        EXPECT_TRUE(poller.addEvent(PollEvent(c.readFd(), 0)));
        // Level-triggered: a byte not read is reported again.
        ASSERT_EQ(write(c.writeFd(), "x", 1), 1);
        EXPECT_EQ(poller.waitEvent(0).size(), 1u);
        EXPECT_EQ(poller.waitEvent(0).size(), 1u);

        poller.close();
        poller.close();
        EXPECT_TRUE(poller.waitEvent(-1000).empty());  // closed: returns at once, empty
        EXPECT_FALSE(poller.addEvent(PollEvent(a.readFd(), 0)));
    }
    EXPECT_EQ(test::openFdCount(), fdsBefore);
}

TEST(Poller, RejectsBadRegistrationsWithoutTouchingTheSystem) {
    Poller poller;
    Pipe p;
    EXPECT_FALSE(poller.addEvent(PollEvent(p.readFd(), 0)));  // not open
    ASSERT_TRUE(poller.open(4, false));
    EXPECT_FALSE(poller.addEvent(PollEvent(-1, 0)));
    EXPECT_FALSE(poller.addEvent(PollEvent(p.readFd(), 2)));
    EXPECT_FALSE(poller.addEvent(PollEvent(p.readFd(), -1)));

    errno = 0;
    EXPECT_FALSE(poller.removeEvent(PollEvent(p.readFd(), 0)));  // nothing registered
    EXPECT_EQ(errno, 0);

    EXPECT_TRUE(poller.addEvent(PollEvent(p.readFd(), 0)));
    EXPECT_FALSE(poller.addEvent(PollEvent(p.readFd(), 0)));  // the kernel refuses a duplicate
    EXPECT_EQ(errno, EEXIST);
    EXPECT_FALSE(poller.removeEvent(PollEvent(p.readFd(), 3)));
    EXPECT_FALSE(poller.removeEvent(PollEvent(p.writeFd(), 1)));  // never registered
    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(poller.removeEvent(PollEvent(p.readFd(), 0)));
    EXPECT_FALSE(poller.removeEvent(PollEvent(p.readFd(), 0)));
}

TEST(Poller, ReportsOneEventPerReadyDescriptor) {
    Poller poller;
    ASSERT_TRUE(poller.open(8, false));
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    Pipe idle;
    // The socket is writable at once; readable too once the peer wrote.
    EXPECT_TRUE(poller.addEvent(PollEvent(pair[0], 1)));
    EXPECT_TRUE(poller.addEvent(PollEvent(idle.readFd(), 0)));
    auto ready = poller.waitEvent(0);
    ASSERT_EQ(ready.size(), 1u);
    EXPECT_EQ(ready[0]->fd, pair[0]);
    EXPECT_EQ(ready[0]->type, 1);
    EXPECT_EQ(ready[0]->className, "PollEvent");

    // A peer that closed makes the descriptor readable (with hang-up).
    Poller reader;
    ASSERT_TRUE(reader.open(1, false));
    EXPECT_TRUE(reader.addEvent(PollEvent(pair[0], 0)));
    close(pair[1]);
    ready = reader.waitEvent(100000);
    ASSERT_EQ(ready.size(), 1u);
    EXPECT_EQ(ready[0]->fd, pair[0]);
    EXPECT_EQ(ready[0]->type, 0);
    close(pair[0]);
}

TEST(Poller, LeavesOutDescriptorsWithOnlyAnError) {
    Pipe p;
    // Fill the pipe, then close its reader: the writer reports only EPOLLERR.
    char block[4096] = {};
    while (write(p.writeFd(), block, sizeof block) > 0) {
    }
    p.closeEnd(0);
    Poller poller;
    ASSERT_TRUE(poller.open(1, false));
    ASSERT_TRUE(poller.addEvent(PollEvent(p.writeFd(), 1)));
    auto start = Clock::now();
    EXPECT_TRUE(poller.waitEvent(2000000).empty());
    EXPECT_LT(msSince(start), 1000);  // the error woke the wait
}

TEST(Poller, CutsTheTimeoutToWholeMilliseconds) {
    Poller poller;
    ASSERT_TRUE(poller.open(1, false));
    Pipe p;
    ASSERT_TRUE(poller.addEvent(PollEvent(p.readFd(), 0)));

    auto start = Clock::now();
    EXPECT_TRUE(poller.waitEvent(-1).empty());
    EXPECT_TRUE(poller.waitEvent(999).empty());
    EXPECT_LT(msSince(start), 20);  // both poll without blocking

    start = Clock::now();
    EXPECT_TRUE(poller.waitEvent(1500).empty());
    EXPECT_LT(msSince(start), 20);  // 1 ms

    start = Clock::now();
    EXPECT_TRUE(poller.waitEvent(30999).empty());
    double waited = msSince(start);
    EXPECT_GE(waited, 29.5);
    EXPECT_LT(waited, 500);

    // -1000 waits without limit, until the descriptor becomes ready.
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(write(p.writeFd(), "x", 1), 1);
    });
    start = Clock::now();
    auto ready = poller.waitEvent(-1000);
    waited = msSince(start);
    writer.join();
    ASSERT_EQ(ready.size(), 1u);
    EXPECT_EQ(ready[0]->fd, p.readFd());
    EXPECT_GE(waited, 25);
}

TEST(Poller, EdgeTriggeredReportsEachChangeOnce) {
    Poller poller;
    ASSERT_TRUE(poller.open(1, true));
    Pipe p;
    ASSERT_TRUE(poller.addEvent(PollEvent(p.readFd(), 0)));
    ASSERT_EQ(write(p.writeFd(), "x", 1), 1);
    EXPECT_EQ(poller.waitEvent(0).size(), 1u);
    EXPECT_TRUE(poller.waitEvent(0).empty());  // not read, but no new edge
    ASSERT_EQ(write(p.writeFd(), "y", 1), 1);
    EXPECT_EQ(poller.waitEvent(0).size(), 1u);
}

}  // namespace
}  // namespace orvane
