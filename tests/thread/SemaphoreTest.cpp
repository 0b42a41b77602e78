#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Semaphore.h>
#include <semaphore.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "support/LogCapture.h"

namespace orvane {
namespace {

using Clock = std::chrono::steady_clock;

long msSince(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// A semaphore name unique to this process and test, unlinked afterwards.
class NamedSemaphoreTest : public ::testing::Test {
  protected:
    void SetUp() override {
        test::LogCapture::get().clear();
        name = "orvane_sem_" + std::to_string(::getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name();
        fdsBefore = test::openFdCount();
    }
    void TearDown() override {
        ::sem_unlink(("/" + name).c_str());
        EXPECT_EQ(test::openFdCount(), fdsBefore);
    }

    std::string name;
    int fdsBefore = 0;
};

TEST(Semaphore, UnnamedCountsPostsAndTimesOutByPolling) {
    Semaphore sem;
    ASSERT_TRUE(sem.open(0, ""));
    auto start = Clock::now();
    EXPECT_FALSE(sem.wait(0));
    EXPECT_LT(msSince(start), 500);  // one attempt, no polling
    start = Clock::now();
    EXPECT_FALSE(sem.wait(50));
    long waited = msSince(start);
    EXPECT_GE(waited, 50);
    EXPECT_LT(waited, 2000);

    EXPECT_TRUE(sem.post());
    EXPECT_TRUE(sem.post());
    int value = -1;
    EXPECT_TRUE(sem.getValue(&value));
    EXPECT_EQ(value, 2);
    EXPECT_FALSE(sem.getValue(nullptr));
    EXPECT_TRUE(sem.wait(0));
    EXPECT_TRUE(sem.wait(-1));

    std::thread poster([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        sem.post();
    });
    EXPECT_TRUE(sem.wait(-1));
    poster.join();
    EXPECT_TRUE(sem.unlink());
    EXPECT_TRUE(sem.close());
}

TEST(Semaphore, RefusesAnInitialCountOutOfRange) {
    auto& capture = test::LogCapture::get();
    capture.clear();
    Semaphore sem;
    EXPECT_FALSE(sem.open(-1, ""));
    EXPECT_EQ(capture.waitLine("sem init"),
              "<E>DATE [Semaphore::open,L#] sem init error: Invalid argument!");
}

TEST_F(NamedSemaphoreTest, FreshOpenDiscardsTheCountOfAStaleSemaphore) {
    sem_t* stale = ::sem_open(("/" + name).c_str(), O_CREAT, 0600, 7);
    ASSERT_NE(stale, SEM_FAILED);
    ::sem_close(stale);
    ASSERT_EQ(::access(("/dev/shm/sem." + name).c_str(), F_OK), 0);

    Semaphore sem;
    ASSERT_TRUE(sem.open(5, name));
    ASSERT_TRUE(sem.open(3, name));  // opening again starts afresh too
    int value = -1;
    EXPECT_TRUE(sem.getValue(&value));
    EXPECT_EQ(value, 3);

    // A second object opening the existing name sees the same count.
    Semaphore other;
    ASSERT_TRUE(other.open(-1, name));
    EXPECT_TRUE(other.wait(0));
    EXPECT_TRUE(sem.getValue(&value));
    EXPECT_EQ(value, 2);
    EXPECT_TRUE(other.close());
    EXPECT_TRUE(sem.close());
    EXPECT_TRUE(sem.unlink());
    EXPECT_NE(::access(("/dev/shm/sem." + name).c_str(), F_OK), 0);
}

TEST_F(NamedSemaphoreTest, MissingNamesAndClosedHandlesFailWithoutHarm) {
    auto& capture = test::LogCapture::get();
    Semaphore sem;
    EXPECT_FALSE(sem.open(-1, name));
    EXPECT_EQ(capture.waitLine("open(/"),
              "<E>DATE [Semaphore::open,L#] open(/" + name + ") error: No such file or directory!");

    ASSERT_TRUE(sem.open(0, name));
    EXPECT_TRUE(sem.close());
    EXPECT_FALSE(sem.close());
    EXPECT_EQ(capture.waitLine("sem close"),
              "<E>DATE [Semaphore::close,L#] sem close error: Invalid argument!");
    int value = 0;
    EXPECT_FALSE(sem.wait(0));
    EXPECT_FALSE(sem.post());
    EXPECT_FALSE(sem.getValue(&value));
    EXPECT_TRUE(sem.unlink());
    EXPECT_FALSE(sem.unlink());
    EXPECT_EQ(capture.waitLine("sem unlink"), "<E>DATE [Semaphore::unlink,L#] sem unlink(/" + name +
                                                  ") error: No such file or directory!");
}

TEST_F(NamedSemaphoreTest, AnotherProcessOpensItByNameAndSeesTheCount) {
    Semaphore sem;
    ASSERT_TRUE(sem.open(1, name));
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Semaphore theirs;
        int value = -1;
        bool ok = theirs.open(-1, name) && theirs.getValue(&value) && value == 1 && theirs.post() &&
                  theirs.post();
        ::_exit(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    int value = -1;
    EXPECT_TRUE(sem.getValue(&value));
    EXPECT_EQ(value, 3);
    EXPECT_TRUE(sem.close());
    EXPECT_TRUE(sem.unlink());
}

TEST(RWMutex, ReadersShareAndTheLastOneOutLetsTheWriterIn) {
    RWMutex lock;
    lock.lockR();
    std::thread secondReader([&] { lock.lockR(); });  // not blocked by the first
    secondReader.join();

    std::atomic<bool> writing{false};
    std::thread writer([&] {
        lock.lockW();
        writing = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(writing);
    lock.unLockR();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(writing);
    // The last reader leaves on a thread that never locked.
    std::thread releaser([&] { lock.unLockR(); });
    releaser.join();
    writer.join();
    EXPECT_TRUE(writing);

    std::atomic<bool> reading{false};
    std::thread reader([&] {
        lock.lockR();
        reading = true;
        lock.unLockR();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(reading);
    lock.unLockW();  // unlocked by another thread than the writer
    reader.join();
    EXPECT_TRUE(reading);

    // Unmatched unlocks change nothing.
    lock.unLockR();
    lock.unLockW();
    lock.lockW();
    lock.unLockW();
}

}  // namespace
}  // namespace orvane
