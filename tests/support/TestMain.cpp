#include <gtest/gtest.h>

#include <thread>

int main(int argc, char** argv) {
    // Death tests re-run the test binary in the child, so each child starts
    // with a fresh Tracer and fresh singletons.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // ThreadSanitizer starts a thread of its own with the process's first
    // thread; start (and end) one here, so that every test counting threads
    // takes its baseline with that thread already there.
    std::thread([] {}).join();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
