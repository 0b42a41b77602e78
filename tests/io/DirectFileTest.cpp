#include <orvane/DirectFile.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using DirectFileTest = test::TempDirTest;

// Unaligned transfers go through the bounce buffer (read-modify-write at the
// edges), aligned ones straight to the kernel; both must agree with the page
// cache. Appending writes at the end wherever the position is.
TEST_F(DirectFileTest, WritesReadsAndAppendsAsAPlainFile) {
    DirectFile file;
    std::string path = dir + "/data", model;
    EXPECT_FALSE(file.open(path, IO_APPEND_READ) || file.open("/proc/self/status", IO_READ));
    EXPECT_EQ(line("direct I/O"),
              "<E>DATE [DirectFile::open,L#] file system of /proc/self/status "
              "refuses direct I/O (O_DIRECT)!");
    // A disk file system takes O_DIRECT; tmpfs on older kernels does not.
    if (!file.open(path, IO_CREATE))
        GTEST_SKIP() << dir << " does not take O_DIRECT; point TMPDIR at a disk file system";
    EXPECT_TRUE((fcntl(file.fd(), F_GETFL) & O_DIRECT) && (fcntl(file.fd(), F_GETFD) & FD_CLOEXEC));
    // The file grows row by row to 300000 bytes, then takes writes inside:
    // 4000+200 reads back both blocks it touches. Row i writes from
    // src + (9 - i) * 4097: only the last row's buffer, position and length
    // are all aligned.
    alignas(4096) static char src[1 << 19];
    test::toolOutput("head -c 524288 /dev/urandom").copy(src, sizeof src);
    const std::pair<long, size_t> writes[] = {{0, 1},      {1, 4095},   {4096, 5000}, {9000, 70000},
                                              {200000, 3}, {0, 300000}, {100, 10},    {4000, 200},
                                              {199999, 2}, {8192, 8192}};
    for (size_t i = 0; i < std::size(writes); ++i) {
        const auto& [pos, len] = writes[i];
        const char* bytes = src + (9 - i) * 4097;
        model.resize(std::max(model.size(), static_cast<size_t>(pos) + len));
        model.replace(static_cast<size_t>(pos), len, bytes, len);
        ASSERT_EQ(file.setPos(pos), pos);
        ASSERT_EQ(file.writeData(bytes, static_cast<int>(len)), static_cast<int>(len));
        EXPECT_EQ(file.getSize(), static_cast<int64_t>(model.size())) << i;
    }
    EXPECT_TRUE(file.sync() && slurp(path) == model);  // through the page cache, independently

    std::string back(model.size() + 7001, '\0');  // unaligned pieces from an unaligned position
    size_t at = 3;
    ASSERT_EQ(file.setPos(3), 3);
    for (int n; at <= model.size() && (n = file.readData(&back[at], 7001)) > 0;) at += n;
    EXPECT_TRUE(back.substr(3, at - 3) == model.substr(3));
    ASSERT_EQ(file.setPos(296960), 296960);  // aligned, 3040 bytes before the end
    EXPECT_EQ(std::string(src, std::max(0, file.recvData(src, 8192, 0))), model.substr(296960));

    EXPECT_TRUE(file.close() && file.open(path, IO_CREATE_APPEND) && file.setPos(0) == 0 &&
                file.sendData("defg", 4, 0) == 4 && file.reopen() && file.writeData("h", 1) == 1 &&
                file.close());
    EXPECT_EQ(slurp(path).substr(model.size()), "defgh");
    EXPECT_TRUE(file.open(path, IO_TRUNCATE) && file.getSize() == 0);
}

}  // namespace
}  // namespace orvane
