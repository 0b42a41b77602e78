#include <orvane/File.h>

#include "io/TempDirFixture.h"
#include "support/Descriptors.h"

namespace orvane {
namespace {

using FileTest = test::TempDirTest;

TEST_F(FileTest, WriteMergeBufferReachesTheStreamInWholeBuffers) {
    std::string p = dir + "/merged", all;
    for (size_t i = 0; i < 13192; ++i) all.push_back(static_cast<char>('a' + i % 26));
    File file;
    ASSERT_TRUE(file.setWMBuffer(4096) && file.open(p, IO_CREATE));
    const struct {
        size_t from, len;
        long pos;  // the stream's position after the write
    } writes[] = {{0, 4095, 0}, {4095, 1, 4096}, {4096, 9096, 12288}};  // 904 left pending
    for (const auto& w : writes) {
        EXPECT_EQ(file.writeData(all.data() + w.from, static_cast<int>(w.len)),
                  static_cast<int>(w.len));
        EXPECT_EQ(file.getPos(), w.pos);
    }
    EXPECT_TRUE(file.close());
    EXPECT_EQ(slurp(p), all);
}

// File's own operations log under File, the ones it inherits under IODevice.
TEST_F(FileTest, RefusesClosedFilesAndBadArgumentsWithoutLeaking) {
    const std::vector<int> fds = test::openFds();
    {
        File file;
        char buf[8];
        EXPECT_EQ(file.writeData("x", 1), -1);
        EXPECT_EQ(line("[File::writeData"), "<E>DATE [File::writeData,L#] file() not open!");
        EXPECT_FALSE(file.open(dir + "/missing", IO_WRITE));
        EXPECT_EQ(line("missing"), "<E>DATE [File::open,L#] file(" + dir +
                                       "/missing) open error: No such file or directory.");
        std::string p = put("data", "abc");
        ASSERT_TRUE(file.open(p, IO_READ) && file.open(p, IO_READ_WRITE));  // replaces the stream
        EXPECT_EQ(file.readData(buf, sizeof buf), 3);
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

// An empty line and the end of the file both give 0; the end keeps the partial line.
TEST_F(FileTest, ReadsLinesWithoutTheirEndings) {
    File file;
    ASSERT_TRUE(file.open(put("lines", "line\r\r\n\nb"), IO_READ));
    const std::pair<int, std::string> lines[] = {{5, "line\r"}, {0, ""}, {0, "b"}};
    std::string text;
    for (const auto& expected : lines) {
        EXPECT_EQ(file.readLine(&text), expected.first);
        EXPECT_EQ(text, expected.second);
    }
    EXPECT_TRUE(file.isEnd());
}

TEST_F(FileTest, StaticPathOperationsRenameTruncateReadAndRemove) {
    std::string regular = put("regular", "12345"), moved = dir + "/moved";
    EXPECT_TRUE(File::rename(regular, moved) && File::truncate(moved, 3));
    EXPECT_EQ(File::readAll(moved), "123");
    EXPECT_FALSE(File::rename(moved, put("taken", "x")));
    EXPECT_EQ(line("[rename,"), "<E>DATE [rename,L#] old file not exists or new file exists!");
    // replace takes the place of the existing file in one step.
    std::string taken = dir + "/taken", missing = dir + "/nowhere";
    EXPECT_TRUE(File::replace(put("fresh", "new"), taken));
    EXPECT_EQ(File::readAll(taken) + std::to_string(File::exists(dir + "/fresh")), "new0");
    EXPECT_FALSE(File::replace(missing, taken));
    EXPECT_EQ(line("[replace,"), "<E>DATE [replace,L#] replace file(" + missing + ")->(" + taken +
                                     ") error: No such file or directory.");
    EXPECT_TRUE(File::remove(moved));
    EXPECT_EQ(File::readAll(moved), "");
    EXPECT_EQ(line("[readAll,"),
              "<E>DATE [readAll,L#] open file(" + moved + ") error: No such file or directory");
}

}  // namespace
}  // namespace orvane
