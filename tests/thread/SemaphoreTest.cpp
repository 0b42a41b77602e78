#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Semaphore.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

TEST(Semaphore, UnnamedCountsPostsAndTimesOutByPolling) {
    Semaphore sem;
    test::expectRefusal([&] { return sem.open(-1, ""); },
                        "<E>DATE [Semaphore::open,L#] sem init error: Invalid argument!");
    ASSERT_TRUE(sem.open(0, ""));
    auto start = Clock::now();
    EXPECT_FALSE(sem.wait(0));
    EXPECT_LT(Clock::now() - start, milliseconds(500));  // one attempt
    start = Clock::now();
    EXPECT_FALSE(sem.wait(50));
    EXPECT_GE(Clock::now() - start, milliseconds(50));
    EXPECT_LT(Clock::now() - start, milliseconds(2000));
    EXPECT_TRUE(sem.post());
    EXPECT_TRUE(sem.wait(0));
    std::thread poster([&] { sem.post(); });
    EXPECT_TRUE(sem.wait(-1));  // woken by the other thread's post
    poster.join();
    EXPECT_TRUE(sem.close());
    EXPECT_TRUE(sem.unlink());  // unnamed: nothing to unlink
}

// A semaphore name unique to this process, unlinked after the test.
class NamedSemaphoreTest : public ::testing::Test {
  protected:
    void TearDown() override { ::sem_unlink(("/" + name).c_str()); }
    std::string name = "orvane_sem_" + std::to_string(::getpid());
};

TEST_F(NamedSemaphoreTest, FreshOpenDiscardsAStaleCountAnotherProcessSharesItAndNothingLeaks) {
    int fds = test::openFdCount();
    sem_t* stale = ::sem_open(("/" + name).c_str(), O_CREAT, 0600, 7);
    ASSERT_NE(stale, SEM_FAILED);
    ::sem_close(stale);
    {
        Semaphore sem;
        ASSERT_TRUE(sem.open(5, name));
        ASSERT_TRUE(sem.open(3, name));  // opening again starts afresh too
        EXPECT_TRUE(test::succeedsInChild([&] {
            Semaphore theirs;  // a negative count opens an existing one as it is
            int value = -1;
            return theirs.open(-1, name) && theirs.getValue(&value) && value == 3 && theirs.post();
        }));
        int value = -1;
        EXPECT_TRUE(sem.getValue(&value));
        EXPECT_EQ(value, 4);
        EXPECT_TRUE(sem.close());
        test::expectRefusal([&] { return sem.close(); },
                            "<E>DATE [Semaphore::close,L#] sem close error: Invalid argument!");
        EXPECT_FALSE(sem.post());
        EXPECT_TRUE(sem.unlink());
        test::expectRefusal(
            [&] { return sem.open(-1, name); },
            "<E>DATE [Semaphore::open,L#] open(/" + name + ") error: No such file or directory!");
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(RWMutex, ReadersShareAndAnotherThreadMayReleaseTheLock) {
    RWMutex lock;
    std::atomic<bool> writing{false}, reading{false};
    lock.lockR();
    lock.lockR();  // readers share
    std::thread writer([&] {
        lock.lockW();
        writing = true;
    });
    lock.unLockR();
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_FALSE(writing);  // one reader is still in
    // The last reader leaves on a thread that never locked.
    std::thread([&] { lock.unLockR(); }).join();
    writer.join();
    std::thread reader([&] {
        lock.lockR();
        reading = true;
    });
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_FALSE(reading);
    lock.unLockW();  // released by another thread than the writer
    reader.join();
    lock.unLockR();
    lock.unLockR();  // an unmatched unlock changes nothing
    lock.lockW();
    lock.unLockW();
}

}  // namespace
}  // namespace orvane
