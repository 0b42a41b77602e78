#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace orvane {
namespace test {

// One row of an open-mode table: the descriptor's access mode, whether it
// appends, and whether opening emptied the file.
struct ModeCase {
    int mode, access;
    bool append, truncates;
};

// A private temporary directory, removed with everything in it; log lines
// cleared before each test.
class TempDirTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogCapture::get().clear();
        dir = tempPath("io");
        ASSERT_TRUE(std::filesystem::create_directory(dir));
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    // Writes `content` to dir/name and returns the path.
    std::string put(const std::string& name, const std::string& content) {
        std::string p = dir + "/" + name;
        std::ofstream(p, std::ios::binary | std::ios::trunc) << content;
        return p;
    }
    static std::string slurp(const std::string& p) {
        std::ifstream in(p, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }
    // What the shell command `command` prints on standard output.
    static std::string commandOutput(const std::string& command) {
        std::string out;
        if (FILE* pipe = popen(command.c_str(), "r")) {
            char chunk[512];
            for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) out.append(chunk, n);
            pclose(pipe);
        }
        return out;
    }
    // The first line containing `text`, normalised; "" when none comes.
    static std::string line(const std::string& text) { return LogCapture::get().waitLine(text); }

    // Opens a fresh six-byte file with each row's mode and checks the descriptor.
    template <class Device>
    void checkModes(const std::vector<ModeCase>& cases) {
        for (const ModeCase& c : cases) {
            SCOPED_TRACE("mode " + std::to_string(c.mode));
            std::string p = put("modes", "abcdef");
            Device dev;
            ASSERT_TRUE(dev.open(p, c.mode));
            int flags = ::fcntl(dev.fd(), F_GETFL);
            EXPECT_EQ(flags & O_ACCMODE, c.access);
            EXPECT_EQ((flags & O_APPEND) != 0, c.append);
            EXPECT_NE(::fcntl(dev.fd(), F_GETFD) & FD_CLOEXEC, 0);
            EXPECT_TRUE(dev.close());
            EXPECT_EQ(slurp(p).size(), c.truncates ? 0u : 6u);
        }
    }

    std::string dir;
};

}  // namespace test
}  // namespace orvane
