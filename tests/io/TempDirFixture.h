#pragma once

#include <sys/stat.h>

#include "support/Descriptors.h"
#include "support/LogCapture.h"
#include "support/PrivateMount.h"
#include "support/ToolRun.h"

// The tests of this folder take their POSIX and standard headers from here.

namespace orvane {
namespace test {

// A private temporary directory, removed with everything in it; log lines
// cleared before each test.
class TempDirTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogCapture::get().clear();
        ASSERT_TRUE(std::filesystem::create_directory(dir));
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    // Writes `content` to dir/name and returns the path.
    std::string put(const std::string& name, const std::string& content) {
        std::ofstream(dir + "/" + name, std::ios::binary | std::ios::trunc) << content;
        return dir + "/" + name;
    }
    static std::string slurp(const std::string& p) { return test::toolOutput("cat '" + p + "'"); }
    // The first line containing `text`, normalised; "" when none comes.
    static std::string line(const std::string& text) { return LogCapture::get().waitLine(text); }

    std::string dir = tempPath("io");
};

// Runs body() in a death-test child that has a mount namespace of its own
// with a fresh tmpfs on /tmp; the child's failed checks fail the test.
// Skips where no such namespace can be made.
inline void inPrivateTmp(const std::function<void()>& body) {
    if (!canHideDirectory("/tmp")) GTEST_SKIP() << "no private mount namespace here";
    EXPECT_EXIT(
        {
            if (!hideDirectory("/tmp")) _exit(2);
            body();
            exitWithChecks();
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace test
}  // namespace orvane
