#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/DirectFile.h>
#include <orvane/Directory.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

// A temporary directory on a file system that takes O_DIRECT: /var/tmp or
// the working directory (the build tree); tmpfs and /tmp may not.
class DirectFileTest : public test::TempDirTest {
  protected:
    void SetUp() override {
        TempDirTest::SetUp();
        char cwd[4096];
        const std::string candidates[] = {"/var/tmp", getcwd(cwd, sizeof cwd) ? cwd : "."};
        for (const std::string& parent : candidates) {
            std::string made = Directory::createTemp(parent, "orvane_direct_");
            if (made.empty()) continue;
            DirectFile probe;
            if (probe.open(made + "/probe", IO_CREATE)) {
                direct = made;
                break;
            }
            Directory::remove(made);
        }
        if (direct.empty())
            GTEST_SKIP() << "no directory here takes O_DIRECT (/var/tmp, build tree)";
    }
    void TearDown() override {
        if (!direct.empty()) Directory::remove(direct);
        TempDirTest::TearDown();
    }
    std::string direct;
};

std::string pattern(size_t len, size_t seed) {
    std::string out(len, '\0');
    for (size_t i = 0; i < len; ++i) out[i] = static_cast<char>('A' + (seed + i * 7) % 53);
    return out;
}

TEST(DirectFile, RefusesAFileSystemWithoutDirectIo) {
    auto& capture = test::LogCapture::fresh();
    DirectFile file;
    EXPECT_FALSE(file.open("/proc/self/status", IO_READ));
    EXPECT_EQ(capture.waitLine("direct I/O"),
              "<E>DATE [DirectFile::open,L#] file system of /proc/self/status refuses direct I/O "
              "(O_DIRECT)!");
    EXPECT_FALSE(file.isOpen());
}

TEST_F(DirectFileTest, WritesAndReadsAnyLengthAtAnyPositionAsAPlainFile) {
    DirectFile file;
    std::string path = direct + "/data";
    ASSERT_TRUE(file.open(path, IO_CREATE));
    int flags = fcntl(file.fd(), F_GETFL);
    EXPECT_NE(flags & O_DIRECT, 0);
    EXPECT_NE(fcntl(file.fd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_GE(file.alignment(), 512u);

    std::string model;
    const struct {
        long pos;
        size_t len;
    } writes[] = {{0, 1},        {1, 4095},   {4096, 5000}, {100, 10},
                  {9000, 70000}, {200000, 3}, {199999, 2},  {0, 300000}};
    for (size_t i = 0; i < sizeof writes / sizeof writes[0]; ++i) {
        SCOPED_TRACE(i);
        std::string bytes = pattern(writes[i].len, i);
        if (model.size() < writes[i].pos + bytes.size()) model.resize(writes[i].pos + bytes.size());
        model.replace(static_cast<size_t>(writes[i].pos), bytes.size(), bytes);
        ASSERT_EQ(file.setPos(writes[i].pos), writes[i].pos);
        ASSERT_EQ(file.writeData(bytes.data(), static_cast<int>(bytes.size())),
                  static_cast<int>(bytes.size()));
        EXPECT_EQ(file.getPos(), writes[i].pos + static_cast<long>(bytes.size()));
        EXPECT_EQ(file.getSize(), static_cast<int64_t>(model.size()));
    }
    // An aligned buffer at an aligned position goes straight through.
    void* raw = nullptr;
    ASSERT_EQ(posix_memalign(&raw, 4096, 8192), 0);
    std::unique_ptr<char, decltype(&free)> aligned(static_cast<char*>(raw), &free);
    std::string block = pattern(8192, 99);
    block.copy(aligned.get(), block.size());
    model.replace(8192, 8192, block);
    ASSERT_EQ(file.setPos(8192), 8192);
    EXPECT_EQ(file.sendData(aligned.get(), 8192, 0), 8192);
    EXPECT_TRUE(file.sync());
    EXPECT_EQ(slurp(path), model);  // through the page cache, independently

    const struct {
        long pos;
        int len, expected;
    } reads[] = {{0, 10, 10},       {4095, 2, 2},   {12345, 70000, 70000},
                 {299990, 100, 10}, {300000, 5, 0}, {8192, 8192, 8192}};
    std::string buf(80000, '\0');
    for (const auto& r : reads) {
        SCOPED_TRACE(r.pos);
        ASSERT_EQ(file.setPos(r.pos), r.pos);
        ASSERT_EQ(file.readData(&buf[0], r.len), r.expected);
        EXPECT_EQ(buf.substr(0, static_cast<size_t>(r.expected)),
                  model.substr(static_cast<size_t>(r.pos), static_cast<size_t>(r.expected)));
    }
    ASSERT_EQ(file.setPos(300000), 300000);
    EXPECT_EQ(file.recvData(aligned.get(), 4096, 0), 0);  // at the end
}

TEST_F(DirectFileTest, AppendsAtTheEndAndReopens) {
    std::string path = direct + "/log";
    DirectFile file;
    ASSERT_TRUE(file.open(path, IO_CREATE_APPEND));
    EXPECT_EQ(file.writeData("abc", 3), 3);
    EXPECT_EQ(file.setPos(0), 0);
    EXPECT_EQ(file.writeData("defg", 4), 4);  // still at the end
    EXPECT_TRUE(file.reopen());
    EXPECT_EQ(file.writeData("h", 1), 1);
    EXPECT_TRUE(file.close());
    EXPECT_EQ(slurp(path), "abcdefgh");
    ASSERT_TRUE(file.open(path, IO_TRUNCATE));
    EXPECT_EQ(file.getSize(), 0);
}

TEST_F(DirectFileTest, RefusesBadArgumentsAndClosedFilesWithoutLeaking) {
    auto& capture = test::LogCapture::get();
    int fds = test::openFdCount();
    {
        DirectFile file;
        EXPECT_EQ(file.writeData("x", 1), -1);
        EXPECT_EQ(capture.waitLine("device not open"),
                  "<E>DATE [DirectFile::writeData,L#] device not open.");
        EXPECT_FALSE(file.open(direct + "/x", IO_APPEND_READ));
        EXPECT_EQ(capture.waitLine("Unsupport"),
                  "<E>DATE [DirectFile::open,L#] Unsupport IO Mode: 7!");
        EXPECT_FALSE(file.open(direct + "/missing", IO_READ));
        ASSERT_TRUE(file.open(direct + "/x", IO_CREATE));
        EXPECT_FALSE(file.open(direct + "/x", IO_CREATE));
        EXPECT_EQ(file.readData(nullptr, 4), -1);
        EXPECT_EQ(file.setPos(-5), -1);
        EXPECT_EQ(capture.waitLine("invalid position"),
                  "<E>DATE [DirectFile::setPos,L#] invalid position(-5)!");
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

}  // namespace
}  // namespace orvane
