#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/LogCapture.h"

namespace orvane {
namespace test {

// A private temporary directory, removed with everything in it; log lines
// cleared before each test and the descriptor count checked after it.
class TempDirTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogCapture::get().clear();
        dir = tempPath("io");
        ASSERT_TRUE(std::filesystem::create_directory(dir));
        fdsBefore = openFdCount();
    }
    void TearDown() override {
        EXPECT_EQ(openFdCount(), fdsBefore);
        std::filesystem::remove_all(dir);
    }
    // Writes `content` to dir/name and returns the path.
    std::string put(const std::string& name, const std::string& content) {
        std::string p = dir + "/" + name;
        std::ofstream(p, std::ios::binary | std::ios::trunc) << content;
        return p;
    }
    static std::string slurp(const std::string& p) {
        std::ifstream in(p, std::ios::binary);
        std::stringstream all;
        all << in.rdbuf();
        return all.str();
    }
    // The first line containing `text`, normalised; "" when none comes.
    static std::string line(const std::string& text) { return LogCapture::get().waitLine(text); }

    std::string dir;
    int fdsBefore = 0;
};

// One row of an open-mode table: the descriptor's access mode, whether it
// appends, and whether opening emptied the file.
struct ModeCase {
    int mode;
    int access;
    bool append;
    bool truncates;
};

}  // namespace test
}  // namespace orvane
