#include <fcntl.h>
#include <orvane/Semaphore.h>
#include <orvane/Time.h>

#include "support/ChildProcess.h"
#include "support/Descriptors.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

TEST(Semaphore, UnnamedCountsPostsAndTimesOutByPolling) {
    Semaphore sem;
    ASSERT_TRUE(!sem.open(-1, "") && sem.open(0, "") && !sem.wait(0));
    Time start = Time::fromMono();  // the clock wait() counts by, read before it starts
    EXPECT_FALSE(sem.wait(50));
    EXPECT_GE(Time::usSinceMono(start), 50000);
    EXPECT_TRUE(sem.post() && sem.wait(0));
    std::thread poster([&] { sem.post(); });
    EXPECT_TRUE(sem.wait(-1));  // woken by the other thread's post
    poster.join();
    EXPECT_TRUE(sem.close() && sem.unlink());  // unnamed: nothing to unlink
}

// The test removes the name it creates; a stale count under it is discarded.
TEST(Semaphore, NamedOpensAfreshIsSharedWithAnotherProcessAndLeaksNothing) {
    std::string name = "orvane_sem_" + std::to_string(::getpid());
    const std::vector<int> fds = test::openFds();
    ::sem_close(::sem_open(("/" + name).c_str(), O_CREAT, 0600, 7));
    Semaphore sem;
    int value = -1;                                       // the child's copy is its own
    EXPECT_TRUE(sem.open(5, name) && sem.open(3, name));  // opening again starts afresh too
    EXPECT_TRUE(test::succeedsInChild([&] {
        Semaphore theirs;  // a negative count opens an existing one as it is
        return theirs.open(-1, name) && theirs.getValue(&value) && value == 3 && theirs.post();
    }));
    EXPECT_TRUE(sem.getValue(&value) && value == 4) << value;
    EXPECT_TRUE(sem.close() && !sem.close() && !sem.post() && sem.unlink());
    test::expectRefusal(
        [&] { return sem.open(-1, name); },
        "<E>DATE [Semaphore::open,L#] open(/" + name + ") error: No such file or directory!");
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

// lockW waits for the last reader, lockR for the writer; any thread may
// release either.
TEST(RWMutex, ReadersShareAndAnotherThreadMayReleaseTheLock) {
    RWMutex lock;
    std::atomic<int> entered{0};
    // Takes the lock on another thread, then counts the entry.
    auto enter = [&](void (RWMutex::*take)()) {
        return std::thread([&, take] { entered += ((lock.*take)(), 1); });
    };
    lock.lockR();
    lock.lockR();  // readers share
    std::thread writer = enter(&RWMutex::lockW);
    lock.unLockR();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(entered, 0);                        // one reader is still in
    std::thread([&] { lock.unLockR(); }).join();  // and leaves on another thread
    writer.join();
    std::thread reader = enter(&RWMutex::lockR);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(entered, 1);
    lock.unLockW();
    reader.join();
    lock.unLockR();
    lock.unLockR();  // an unmatched unlock changes nothing
    lock.lockW();
    lock.unLockW();
}

}  // namespace
}  // namespace orvane
