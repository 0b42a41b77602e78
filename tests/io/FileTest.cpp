#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Directory.h>
#include <orvane/File.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "io/TempDirFixture.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using FileTest = test::TempDirTest;

TEST_F(FileTest, OpensTheStreamModeOfEachIOModeAndRefusesAppendOnly) {
    // IO_WRITE opens a read-write stream; IO_TRUNCATE a write-only one.
    const test::ModeCase cases[] = {
        {IO_READ, O_RDONLY, false, false},     {IO_WRITE, O_RDWR, false, false},
        {IO_READ_WRITE, O_RDWR, false, false}, {IO_TRUNCATE, O_WRONLY, false, true},
        {IO_CREATE, O_RDWR, false, true},      {IO_CREATE_APPEND, O_WRONLY, true, false},
        {IO_APPEND_READ, O_RDWR, true, false},
    };
    std::string p = dir + "/modes";
    for (const test::ModeCase& c : cases) {
        put("modes", "abcdef");
        File file;
        ASSERT_TRUE(file.open(p, c.mode)) << "mode " << c.mode;
        int flags = ::fcntl(file.fd(), F_GETFL);
        EXPECT_EQ(flags & O_ACCMODE, c.access) << "mode " << c.mode;
        EXPECT_EQ((flags & O_APPEND) != 0, c.append) << "mode " << c.mode;
        EXPECT_NE(::fcntl(file.fd(), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(File::getSize(p), c.truncates ? 0u : 6u) << "mode " << c.mode;
    }

    File file;
    EXPECT_FALSE(file.open(p, IO_APPEND));
    EXPECT_EQ(line("Unsupport"), "<E>DATE [File::open,L#] Unsupport mode(3)");
    EXPECT_FALSE(file.open(p, 8));
    EXPECT_FALSE(file.open("", IO_READ));
    EXPECT_EQ(line("empty"), "<E>DATE [File::open,L#] file name is empty.");
    EXPECT_FALSE(file.open(dir + "/missing", IO_WRITE));
    EXPECT_EQ(line("missing"), "<E>DATE [File::open,L#] file(" + dir +
                                   "/missing) open error: No such file or directory.");
    EXPECT_FALSE(file.isOpen());

    // A second open replaces the stream without complaint.
    ASSERT_TRUE(file.open(p, IO_READ));
    ASSERT_TRUE(file.open(p, IO_READ_WRITE));
    EXPECT_EQ(file.writeData("xy", 2), 2);
}

TEST_F(FileTest, WriteMergeBufferReachesTheStreamInWholeBuffers) {
    std::string p = dir + "/merged";
    std::string expected;
    auto bytes = [&](size_t n) {
        std::string s;
        for (size_t i = 0; i < n; ++i)
            s.push_back(static_cast<char>('a' + (expected.size() + i) % 26));
        expected += s;
        return s;
    };
    File file;
    ASSERT_TRUE(file.setWMBuffer(4096));
    ASSERT_TRUE(file.open(p, IO_CREATE));

    std::string s = bytes(4095);
    EXPECT_EQ(file.writeData(s.data(), 4095), 4095);
    EXPECT_EQ(file.getPos(), 0);  // all of it still pending
    s = bytes(1);
    EXPECT_EQ(file.writeData(s.data(), 1), 1);
    EXPECT_EQ(file.getPos(), 4096);  // exactly full: written at once
    s = bytes(10);
    EXPECT_EQ(file.writeData(s.data(), 10), 10);
    EXPECT_EQ(file.getPos(), 4096);
    file.flush();
    EXPECT_EQ(file.getPos(), 4106);
    s = bytes(5000);  // one buffer out, 904 pending
    EXPECT_EQ(file.writeData(s.data(), 5000), 5000);
    EXPECT_EQ(file.getPos(), 8202);
    s = bytes(3 * 4096 + 7);  // fills the pending buffer, two more buffers, 911 pending
    EXPECT_EQ(file.writeData(s.data(), static_cast<int>(s.size())), static_cast<int>(s.size()));
    EXPECT_EQ(file.getPos(), 8202 + 3 * 4096);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(slurp(p), expected);

    // The buffer was released by close with bytes pending; the next open allocates it again.
    ASSERT_TRUE(file.open(p, IO_CREATE_APPEND));
    EXPECT_EQ(file.writeData("tail", 4), 4);
    EXPECT_EQ(File::getSize(p), expected.size());
    EXPECT_TRUE(file.close());
    EXPECT_EQ(slurp(p), expected + "tail");
}

TEST_F(FileTest, WriteMergeReportsAFailedBufferWriteWithItsCount) {
    File file;
    ASSERT_TRUE(file.setWMBuffer(4096));
    ASSERT_TRUE(file.open("/dev/full", IO_WRITE));
    std::string data(5000, 'x');
    EXPECT_EQ(file.writeData(data.data(), 100), 100);
    EXPECT_EQ(file.writeData(data.data(), 5000), 0);
    EXPECT_EQ(line("MM("),
              "<E>DATE [File::writeData,L#] MM(4096) wirte(0) error: No space left "
              "on device");
    EXPECT_TRUE(file.close());
}

TEST_F(FileTest, RejectsDataCallsOnAClosedFileAndBadArguments) {
    File file;
    char buf[8];
    EXPECT_EQ(file.writeData("x", 1), -1);
    EXPECT_EQ(line("[File::writeData"), "<E>DATE [File::writeData,L#] file() not open!");
    EXPECT_EQ(file.readData(buf, 1), -1);
    EXPECT_EQ(file.getPos(), -1);
    EXPECT_EQ(file.setPos(0), -1);
    EXPECT_EQ(file.getSize(), -1);
    EXPECT_FALSE(file.setIOBuffer(1024));
    EXPECT_FALSE(file.isEnd());
    std::string text = "kept";
    EXPECT_EQ(file.readLine(&text), -1);
    EXPECT_EQ(file.readString(10), "");
    EXPECT_EQ(line("[File::readLine"), "<E>DATE [File::readLine,L#] file() not open!");
    EXPECT_EQ(line("[File::setIOBuffer"), "<E>DATE [File::setIOBuffer,L#] file() not open!");
    EXPECT_TRUE(test::LogCapture::get().waitFor("[File::readData", 3000, 2));
    EXPECT_TRUE(file.close());
    file.flush();

    ASSERT_TRUE(file.open(put("data", "abc"), IO_READ_WRITE));
    EXPECT_EQ(file.readData(nullptr, 5), -1);
    EXPECT_EQ(line("buf=0x"), "<E>DATE [File::readData,L#] parameter error:buf=0x0,count=5.");
    EXPECT_EQ(file.writeData("x", -1), -1);
    EXPECT_EQ(line("parameter error."), "<E>DATE [File::writeData,L#] parameter error.");
    EXPECT_EQ(file.readLine(nullptr), -1);
    EXPECT_TRUE(file.setIOBuffer(8192));
    EXPECT_EQ(file.readData(buf, sizeof buf), 3);
}

TEST_F(FileTest, ReadsLinesWithoutTheirEndings) {
    File file;
    ASSERT_TRUE(file.open(put("lines", "a\r\nb"), IO_READ));
    std::string text;
    EXPECT_EQ(file.readLine(&text), 1);
    EXPECT_EQ(text, "a");
    EXPECT_EQ(file.readLine(&text), 0);  // end of file: the partial line is kept
    EXPECT_EQ(text, "b");

    ASSERT_TRUE(file.open(put("more", "\nlong line\r\r\n"), IO_READ));
    EXPECT_EQ(file.readLine(&text), 0);  // an empty line also gives 0
    EXPECT_EQ(text, "");
    EXPECT_EQ(file.readLine(&text), 10);
    EXPECT_EQ(text, "long line\r");
    EXPECT_EQ(file.readLine(&text), 0);
    EXPECT_TRUE(file.isEnd());
}

TEST_F(FileTest, ReadsStringsInChunksAndWholeFilesBySecondStream) {
    std::string content;
    for (int i = 0; i < 1300; ++i) content.push_back(static_cast<char>(i % 251));
    File file;
    ASSERT_TRUE(file.open(put("blob", content), IO_READ));
    EXPECT_EQ(file.getSize(), 1300);
    EXPECT_EQ(file.readString(1024), content.substr(0, 1024));
    EXPECT_EQ(file.readString(5), content.substr(1024, 5));
    EXPECT_EQ(file.getPos(), 1029);
    EXPECT_EQ(file.getSize(), 1300);  // keeps the position
    EXPECT_FALSE(file.isEnd());
    EXPECT_EQ(file.readAll(), content);
    EXPECT_EQ(file.getPos(), 1029);
    EXPECT_EQ(file.readString(0), content.substr(1029));
    EXPECT_TRUE(file.isEnd());
    EXPECT_EQ(file.readString(0), "");
    EXPECT_EQ(file.setPos(1299), 1299);
    EXPECT_EQ(file.readString(600), content.substr(1299));
}

TEST_F(FileTest, MapsTheFileSharedAndKeepsTheFailureMarker) {
    std::string p = put("mapped", "hello world");
    {
        File file;
        ASSERT_TRUE(file.open(p, IO_READ_WRITE));
        char* mem = static_cast<char*>(file.mapMemory());
        ASSERT_NE(mem, nullptr);
        EXPECT_EQ(file.mapMemory(), mem);
        EXPECT_EQ(std::string(mem, 11), "hello world");
        mem[0] = 'J';
        EXPECT_TRUE(file.unmapMemory());
        EXPECT_TRUE(file.unmapMemory());
        ASSERT_NE(file.mapMemory(), nullptr);  // left mapped: the destructor releases it
    }
    EXPECT_EQ(slurp(p), "Jello world");

    File empty;
    ASSERT_TRUE(empty.open(put("empty", ""), IO_READ_WRITE));
    EXPECT_EQ(empty.mapMemory(), nullptr);
    EXPECT_EQ(line("map memory"), "<E>DATE [File::mapMemory,L#] file(" + dir +
                                      "/empty) map memory error: Invalid argument!");
    EXPECT_EQ(empty.mapMemory(), MAP_FAILED);
    EXPECT_FALSE(empty.unmapMemory());
    EXPECT_EQ(line("unmap"), "<E>DATE [File::unmapMemory,L#] file(" + dir +
                                 "/empty) unmap memory error: Invalid argument!");
}

TEST_F(FileTest, StaticPathOperationsTellEntriesApart) {
    std::string regular = put("regular", "12345");
    std::string sub = dir + "/sub";
    std::string dangling = dir + "/dangling";
    std::string link = dir + "/link";
    std::string fifo = dir + "/fifo";
    ASSERT_TRUE(Directory::createDir(sub, 0755, false));
    ASSERT_EQ(::symlink((dir + "/nowhere").c_str(), dangling.c_str()), 0);
    ASSERT_EQ(::symlink(regular.c_str(), link.c_str()), 0);
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);

    EXPECT_TRUE(File::exists(regular));
    EXPECT_TRUE(File::exists(link));
    EXPECT_FALSE(File::exists(sub));
    EXPECT_FALSE(File::exists(dangling));
    EXPECT_FALSE(File::exists(dir + "/nowhere"));
    EXPECT_FALSE(File::exists(""));

    EXPECT_EQ(File::type(regular), FT_REGULAR);
    EXPECT_EQ(File::type(sub), FT_DIRECTORY);
    EXPECT_EQ(File::type(dangling), FT_SYMLINK);
    EXPECT_EQ(File::type(link), FT_SYMLINK);
    EXPECT_EQ(File::type(fifo), FT_FIFO);
    EXPECT_EQ(File::type("/dev/null"), FT_CHAR_DEVICE);
    EXPECT_EQ(File::type(dir + "/nowhere"), FT_UNKNOWN);
    EXPECT_EQ(line("[type,"),
              "<E>DATE [type,L#] lstat(" + dir + "/nowhere) error: No such file or directory!");

    struct stat st;
    ASSERT_EQ(::lstat(regular.c_str(), &st), 0);
    EXPECT_EQ(File::modifyTime(regular),
              int64_t(st.st_mtim.tv_sec) * 1000000 + st.st_mtim.tv_nsec / 1000);
    EXPECT_EQ(File::modifyTime(""), 0);
    EXPECT_EQ(line("[modifyTime,"),
              "<E>DATE [modifyTime,L#] lstat() error: No such file or directory!");

    EXPECT_EQ(File::getSize(regular), 5u);
    EXPECT_EQ(File::getSize(dir + "/nowhere"), 0u);
    EXPECT_EQ(File::readAll(regular), "12345");
    EXPECT_EQ(File::readAll(dir + "/nowhere"), "");
    EXPECT_EQ(line("[readAll,"), "<E>DATE [readAll,L#] open file(" + dir +
                                     "/nowhere) error: No such file or directory");
}

TEST_F(FileTest, StaticPathOperationsChangeEntriesOnlyWhenAllowed) {
    std::string a = put("a", "abcdef");
    std::string b = dir + "/b";
    EXPECT_TRUE(File::truncate(a, 3));
    EXPECT_EQ(slurp(a), "abc");
    EXPECT_FALSE(File::truncate(a, -1));
    EXPECT_FALSE(File::truncate("", 1));
    EXPECT_EQ(line("[truncate,"), "<E>DATE [truncate,L#] open file((null)) error: Success");
    EXPECT_FALSE(File::truncate(b, 1));
    EXPECT_EQ(line("b) error"),
              "<E>DATE [truncate,L#] open file(" + b + ") error: No such file or directory");

    EXPECT_TRUE(File::rename(a, b));
    EXPECT_FALSE(File::exists(a));
    EXPECT_EQ(slurp(b), "abc");
    put("c", "x");
    EXPECT_FALSE(File::rename(b, dir + "/c"));
    EXPECT_EQ(line("[rename,"), "<E>DATE [rename,L#] old file not exists or new file exists!");
    EXPECT_EQ(slurp(b), "abc");

    EXPECT_TRUE(File::remove(b));
    EXPECT_FALSE(File::remove(b));
    EXPECT_EQ(line("[remove,"),
              "<E>DATE [remove,L#] remove file(" + b + ") error: No such file or directory.");
}

TEST_F(FileTest, StaticSizeKeepsTheLowThirtyTwoBits) {
    std::string big = dir + "/big";
    int fd = ::open(big.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    int rc = ::ftruncate(fd, 5LL << 30);  // sparse: takes no space
    ::close(fd);
    if (rc != 0) GTEST_SKIP() << "the temporary file system cannot hold a 5 GiB sparse file";
    EXPECT_EQ(File::getSize(big), 1u << 30);
}

TEST_F(FileTest, DirectoriesAreCreatedWithOrWithoutTheirParents) {
    std::string deep = dir + "/x/y/z";
    EXPECT_FALSE(Directory::exists(deep));
    EXPECT_FALSE(Directory::createDir(deep, 0755, false));
    EXPECT_EQ(line("create dir"),
              "<E>DATE [createDir,L#] create dir(" + deep + ") error: No such file or directory!");
    EXPECT_TRUE(Directory::createDir(deep + "/", 0755, true));
    EXPECT_TRUE(Directory::exists(deep));
    EXPECT_TRUE(Directory::createDir(deep, 0755, true));  // already there
    EXPECT_FALSE(Directory::createDir(deep, 0755, false));

    std::string plain = put("plain", "");
    EXPECT_FALSE(Directory::exists(plain));
    EXPECT_FALSE(Directory::createDir(plain + "/child", 0755, true));
    EXPECT_FALSE(Directory::exists(""));
    EXPECT_FALSE(Directory::createDir("", 0755, true));
    EXPECT_EQ(line("empty"), "<E>DATE [createDir,L#] directory name is empty!");
}

}  // namespace
}  // namespace orvane
