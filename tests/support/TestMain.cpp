#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Death tests re-run the test binary in the child, so each child starts
    // with a fresh Tracer and fresh singletons.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
