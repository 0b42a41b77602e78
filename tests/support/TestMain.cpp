#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "support/Eventually.h"
#include "support/ProcTasks.h"

int main(int argc, char** argv) {
    // Death tests re-run the test binary in the child, so each child starts
    // with a fresh Tracer and fresh singletons.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // ThreadSanitizer starts a thread of its own with the process's first
    // thread; start (and end) one here and wait until the kernel has let it
    // go, so that every test counting threads takes its baseline with the
    // sanitizer's thread there and without this one.
    long taskId = 0;
    std::thread([&taskId] { taskId = syscall(SYS_gettid); }).join();
    orvane::test::eventually(
        [taskId] { return orvane::test::threadName(static_cast<int>(taskId)).empty(); });
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
