#include <orvane/File.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using FileTest = test::TempDirTest;

// 4095 + 1 bytes fill the 4096-byte buffer and reach the stream; of the
// following 9096, two whole buffers do and 904 wait for close(). The static
// path operations follow.
TEST_F(FileTest, WriteMergeBufferFillsWholeBuffersAndPathOperationsWork) {
    std::string p = dir + "/merged", all = test::toolOutput("head -c 13192 /dev/urandom");
    File file;
    ASSERT_TRUE(file.setWMBuffer(4096) && file.open(p, IO_CREATE));
    const size_t writes[][3] = {{0, 4095, 0}, {4095, 1, 4096}, {4096, 9096, 12288}};
    for (const auto& [from, len, pos] : writes) {
        EXPECT_EQ(file.writeData(all.data() + from, static_cast<int>(len)), static_cast<int>(len));
        EXPECT_EQ(file.getPos(), static_cast<long>(pos));
    }
    EXPECT_TRUE(file.close());
    EXPECT_EQ(slurp(p), all);

    std::string moved = dir + "/moved", taken = put("taken", "x");
    EXPECT_TRUE(File::rename(put("regular", "12345"), moved) && File::truncate(moved, 3));
    EXPECT_EQ(File::readAll(moved), "123");
    EXPECT_FALSE(File::rename(moved, taken));
    EXPECT_EQ(line("[rename,"), "<E>DATE [rename,L#] old file not exists or new file exists!");
    // replace takes the place of the existing file in one step.
    EXPECT_TRUE(File::replace(put("fresh", "new"), taken));
    EXPECT_EQ(File::readAll(taken) + std::to_string(File::exists(dir + "/fresh")), "new0");
    EXPECT_TRUE(File::remove(moved) && File::readAll(moved).empty());
    EXPECT_EQ(line("[readAll,"),
              "<E>DATE [readAll,L#] open file(" + moved + ") error: No such file or directory");
}

// Reopening replaces the stream without leaking; an empty line and the end
// of the file both give 0, the end keeping the partial line.
TEST_F(FileTest, RefusesClosedFilesAndReadsLinesWithoutLeaking) {
    const std::vector<int> fds = test::openFds();
    {
        File file;
        EXPECT_EQ(file.writeData("x", 1), -1);
        EXPECT_EQ(line("[File::writeData"), "<E>DATE [File::writeData,L#] file() not open!");
        EXPECT_FALSE(file.isEnd());  // through the virtual getPos()
        EXPECT_EQ(line("[File::getPos"), "<E>DATE [File::getPos,L#] file() not open!");
        EXPECT_FALSE(file.open(dir + "/missing", IO_WRITE));
        std::string p = put("lines", "line\r\r\n\nb");
        ASSERT_TRUE(file.open(p, IO_READ) && file.open(p, IO_READ_WRITE));
        std::string got;  // each line's length and text, up to the end
        for (std::string text; !file.isEnd() && got.size() < 99;)
            got += std::to_string(file.readLine(&text)) + " " + text + "|";
        EXPECT_EQ(got, "5 line\r|0 |0 b|");
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

}  // namespace
}  // namespace orvane
