#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/Emulator.h"
#include "support/Eventually.h"
#include "support/ProcTasks.h"

using namespace orvane::test;

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
    eventually([taskId] { return threadName(static_cast<int>(taskId)).empty(); });
    // Under an emulator the kernel cannot execute the test binary itself, so
    // the death tests' children start it through the emulator: its command
    // line comes first in the arguments gtest re-runs.
    std::vector<std::string> words = targetCommand({argv, argv + argc});
    std::vector<char*> args(words.size() + 1);  // ends with a null pointer
    for (size_t i = 0; i < words.size(); ++i) args[i] = words[i].data();
    int count = static_cast<int>(words.size());
    ::testing::InitGoogleTest(&count, args.data());
    return RUN_ALL_TESTS();
}
