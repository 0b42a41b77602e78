#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/File.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using FileTest = test::TempDirTest;

// IO_WRITE opens a read-write stream, IO_TRUNCATE a write-only one, and
// IO_APPEND_READ is taken while IO_APPEND is refused (unlike IODevice).
TEST_F(FileTest, OpensTheStreamModeOfEachIOModeAndRefusesAppendOnly) {
    checkModes<File>({{IO_READ, O_RDONLY, false, false},
                      {IO_WRITE, O_RDWR, false, false},
                      {IO_READ_WRITE, O_RDWR, false, false},
                      {IO_TRUNCATE, O_WRONLY, false, true},
                      {IO_CREATE, O_RDWR, false, true},
                      {IO_CREATE_APPEND, O_WRONLY, true, false},
                      {IO_APPEND_READ, O_RDWR, true, false}});
    File file;
    EXPECT_FALSE(file.open(put("modes", "x"), IO_APPEND));
    EXPECT_EQ(line("Unsupport"), "<E>DATE [File::open,L#] Unsupport mode(3)");
}

TEST_F(FileTest, WriteMergeBufferReachesTheStreamInWholeBuffers) {
    std::string p = dir + "/merged";
    std::string all;
    for (size_t i = 0; i < 13192; ++i) all.push_back(static_cast<char>('a' + i % 26));
    File file;
    ASSERT_TRUE(file.setWMBuffer(4096));
    ASSERT_TRUE(file.open(p, IO_CREATE));
    EXPECT_EQ(file.writeData(all.data(), 4095), 4095);
    EXPECT_EQ(file.getPos(), 0);  // all of it still pending
    EXPECT_EQ(file.writeData(all.data() + 4095, 1), 1);
    EXPECT_EQ(file.getPos(), 4096);  // exactly full: written at once
    EXPECT_EQ(file.writeData(all.data() + 4096, 9096), 9096);
    EXPECT_EQ(file.getPos(), 12288);  // two more buffers out, 904 pending
    EXPECT_TRUE(file.close());
    EXPECT_EQ(slurp(p), all);
}

// File's own operations log under File, the ones it inherits under IODevice.
TEST_F(FileTest, RefusesBadArgumentsAndClosedFilesWithoutLeaking) {
    int fds = test::openFdCount();
    {
        File file;
        char buf[8];
        std::string text;
        EXPECT_EQ(file.writeData("x", 1), -1);
        EXPECT_EQ(line("[File::writeData"), "<E>DATE [File::writeData,L#] file() not open!");
        EXPECT_EQ(file.readLine(&text), -1);
        EXPECT_FALSE(file.open("", IO_READ));
        EXPECT_FALSE(file.open(dir + "/missing", IO_WRITE));
        EXPECT_EQ(line("missing"), "<E>DATE [File::open,L#] file(" + dir +
                                       "/missing) open error: No such file or directory.");

        std::string p = put("data", "abc");
        ASSERT_TRUE(file.open(p, IO_READ));
        ASSERT_TRUE(file.open(p, IO_READ_WRITE));  // replaces the stream without complaint
        EXPECT_EQ(file.readData(nullptr, 5), -1);
        EXPECT_EQ(line("buf=0x"), "<E>DATE [File::readData,L#] parameter error:buf=0x0,count=5.");
        EXPECT_EQ(file.recvData(nullptr, 4, 0), -1);
        EXPECT_EQ(line("param error."), "<E>DATE [IODevice::recvData,L#] param error.");
        EXPECT_EQ(file.readData(buf, sizeof buf), 3);
    }
    EXPECT_EQ(test::openFdCount(), fds);
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

TEST_F(FileTest, StaticPathOperationsTellEntriesApart) {
    std::string regular = put("regular", "12345"), sub = dir + "/sub", moved = dir + "/moved";
    std::string dangling = dir + "/dangling", missing = dir + "/nowhere";
    ASSERT_EQ(::mkdir(sub.c_str(), 0755), 0);
    ASSERT_EQ(::symlink(missing.c_str(), dangling.c_str()), 0);
    EXPECT_TRUE(File::exists(regular));
    EXPECT_FALSE(File::exists(sub) || File::exists(dangling));
    EXPECT_EQ(File::type(sub), FT_DIRECTORY);
    EXPECT_EQ(File::type(dangling), FT_SYMLINK);
    EXPECT_EQ(File::type(missing), FT_UNKNOWN);
    EXPECT_EQ(line("[type,"),
              "<E>DATE [type,L#] lstat(" + missing + ") error: No such file or directory!");
    struct stat st;
    ASSERT_EQ(::lstat(regular.c_str(), &st), 0);
    EXPECT_EQ(File::modifyTime(regular), st.st_mtim.tv_sec * 1000000LL + st.st_mtim.tv_nsec / 1000);

    EXPECT_TRUE(File::rename(regular, moved) && File::truncate(moved, 3));
    EXPECT_EQ(File::readAll(moved), "123");
    EXPECT_FALSE(File::rename(moved, put("taken", "x")));
    EXPECT_EQ(line("[rename,"), "<E>DATE [rename,L#] old file not exists or new file exists!");
    // replace takes the place of the existing file in one step.
    std::string taken = dir + "/taken";
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
