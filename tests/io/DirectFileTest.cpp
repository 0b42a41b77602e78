#include <orvane/DirectFile.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

// The temporary directory must take O_DIRECT (a disk file system does; tmpfs
// on older kernels does not).
class DirectFileTest : public test::TempDirTest {
  protected:
    void SetUp() override {
        TempDirTest::SetUp();
        if (!DirectFile().open(dir + "/probe", IO_CREATE)) {
            GTEST_SKIP() << dir << " does not take O_DIRECT; point TMPDIR at a disk file system";
        }
    }
};

std::string pattern(size_t len, size_t seed) {
    std::string out(len, '\0');
    for (size_t i = 0; i < len; ++i) out[i] = static_cast<char>('A' + (seed + i * 7) % 53);
    return out;
}

// Unaligned transfers go through the bounce buffer (read-modify-write at the
// edges), aligned ones straight to the kernel; both must agree with the page
// cache. Appending writes at the end wherever the position is.
TEST_F(DirectFileTest, WritesReadsAndAppendsAsAPlainFile) {
    DirectFile file;
    EXPECT_FALSE(file.open(dir + "/data", IO_APPEND_READ) ||
                 file.open("/proc/self/status", IO_READ));
    EXPECT_EQ(line("direct I/O"),
              "<E>DATE [DirectFile::open,L#] file system of /proc/self/status "
              "refuses direct I/O (O_DIRECT)!");
    std::string path = dir + "/data", model;
    ASSERT_TRUE(file.open(path, IO_CREATE));
    EXPECT_EQ(fcntl(file.fd(), F_GETFL) & O_DIRECT, O_DIRECT);
    EXPECT_EQ(fcntl(file.fd(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    const std::pair<long, size_t> writes[] = {{0, 1},      {1, 4095},     {4096, 5000},
                                              {100, 10},   {9000, 70000}, {200000, 3},
                                              {199999, 2}, {0, 300000}};
    for (size_t i = 0; i < std::size(writes); ++i) {
        std::string bytes = pattern(writes[i].second, i);
        model.resize(std::max(model.size(), static_cast<size_t>(writes[i].first) + bytes.size()));
        model.replace(static_cast<size_t>(writes[i].first), bytes.size(), bytes);
        ASSERT_EQ(file.setPos(writes[i].first), writes[i].first);
        ASSERT_EQ(file.writeData(bytes.data(), static_cast<int>(bytes.size())),
                  static_cast<int>(bytes.size()));
        EXPECT_EQ(file.getSize(), static_cast<int64_t>(model.size())) << i;
    }
    alignas(4096) static char aligned[8192];
    pattern(8192, 99).copy(aligned, 8192);
    model.replace(8192, 8192, aligned, 8192);
    ASSERT_EQ(file.setPos(8192), 8192);
    EXPECT_EQ(file.sendData(aligned, 8192, 0), 8192);
    EXPECT_TRUE(file.sync());
    EXPECT_TRUE(slurp(path) == model);  // through the page cache, independently

    std::string back(model.size() + 7001, '\0');  // unaligned pieces from an unaligned position
    size_t at = 3;
    ASSERT_EQ(file.setPos(3), 3);
    for (int n; at <= model.size() && (n = file.readData(&back[at], 7001)) > 0;) at += n;
    EXPECT_TRUE(back.substr(3, at - 3) == model.substr(3));
    ASSERT_EQ(file.setPos(296960), 296960);  // aligned, 3040 bytes before the end
    EXPECT_EQ(file.recvData(aligned, 8192, 0), 3040);
    EXPECT_EQ(std::string(aligned, 3040), model.substr(296960));
    EXPECT_EQ(file.setPos(-5), -1);

    ASSERT_TRUE(file.close() && file.open(path, IO_CREATE_APPEND));
    EXPECT_EQ(file.setPos(0), 0);
    EXPECT_EQ(file.writeData("defg", 4), 4);
    EXPECT_TRUE(file.reopen());
    EXPECT_EQ(file.writeData("h", 1), 1);
    ASSERT_TRUE(file.close());
    EXPECT_EQ(slurp(path).substr(model.size()), "defgh");
    ASSERT_TRUE(file.open(path, IO_TRUNCATE));
    EXPECT_EQ(file.getSize(), 0);
}

}  // namespace
}  // namespace orvane
