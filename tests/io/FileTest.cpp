#include <orvane/DirectFile.h>
#include <orvane/File.h>
#include <orvane/FilePath.h>
#include <orvane/IODevice.h>

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
    EXPECT_TRUE(file.close() && slurp(p) == all);

    std::string moved = dir + "/moved", taken = put("taken", "x");
    EXPECT_TRUE(File::rename(put("regular", "12345"), moved) && File::truncate(moved, 3) &&
                File::readAll(moved) == "123" && !File::rename(moved, taken));
    EXPECT_EQ(line("[rename,"), "<E>DATE [rename,L#] old file not exists or new file exists!");
    // replace takes the place of the existing file in one step.
    EXPECT_TRUE(File::replace(put("fresh", "new"), taken));
    EXPECT_EQ(File::readAll(taken) + std::to_string(File::exists(dir + "/fresh")), "new0");
    EXPECT_TRUE(File::remove(moved) && File::readAll(moved).empty());
    EXPECT_EQ(line("[readAll,"),
              "<E>DATE [readAll,L#] open file(" + moved + ") error: No such file or directory");
}

// Files past 2 GiB, where a 32-bit off_t or long runs out: a sparse file of
// 3 GiB takes no disk space.
constexpr int64_t kBig = int64_t{3} << 30;

// What an operation with a long result gives for `value`: the value when
// long holds it, else -1.
long asLong(int64_t value) {
    return static_cast<int64_t>(static_cast<long>(value)) == value ? static_cast<long>(value) : -1;
}

TEST_F(FileTest, SeeksWritesAndReadsPastTwoGigabytes) {
    // Made by the truncate tool, so that it does not depend on how this program was built.
    std::string path = dir + "/big", size = std::to_string(kBig);
    if (test::toolOutput("truncate -s " + size + " '" + path + "' && stat -c %s '" + path + "'") !=
        size + "\n")
        GTEST_SKIP() << "no sparse file of 3 GiB in " << dir;
    EXPECT_TRUE(File::type(path) == FT_REGULAR &&
                File::getSize(path) == static_cast<uint32_t>(kBig) && File::modifyTime(path) > 0);

    const int64_t offsets[] = {0, (int64_t{1} << 31) - 1, (int64_t{1} << 31) + 5, kBig - 2};
    File file;
    ASSERT_TRUE(file.open(path, IO_READ_WRITE) && !file.seek(-1));
    EXPECT_EQ(line("negative"),
              "<E>DATE [File::seek,L#] file(" + path + ") seek to negative offset -1!");
    EXPECT_TRUE(file.size() == kBig && file.getSize() == asLong(kBig));
    for (int64_t offset : offsets) {
        ASSERT_TRUE(file.seek(offset) && file.getPos() == asLong(offset)) << offset;
        EXPECT_TRUE(file.writeData("ok", 2) == 2 && file.pos() == offset + 2) << offset;
    }
    ASSERT_TRUE(file.isEnd() && file.close());
    for (int64_t offset : offsets) {  // as the dd tool reads them
        EXPECT_EQ(test::toolOutput("dd if='" + path +
                                   "' bs=1 count=3 status=none skip=" + std::to_string(offset)),
                  offset + 2 < kBig ? std::string("ok\0", 3) : "ok")
            << offset;
    }
}

// Unaligned transfers go through the bounce buffer (read-modify-write at the
// edges), aligned ones straight to the kernel; both must agree with the page
// cache. Appending writes at the end wherever the position is.
TEST_F(FileTest, DirectFileWritesReadsAndAppendsAsAPlainFile) {
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
    EXPECT_TRUE(slurp(path).substr(model.size()) == "defgh" && file.open(path, IO_TRUNCATE) &&
                file.getSize() == 0);
}

// What opening a fresh six-byte file in `mode` gives: "-" when refused, else
// the access mode, "a" when appending and "t" when it emptied the file.
template <class Device>
std::string opened(const std::string& path, int mode) {
    std::ofstream(path, std::ios::trunc) << "abcdef";
    Device dev;
    if (!dev.open(path, mode)) return "-";
    int flags = ::fcntl(dev.fd(), F_GETFL);
    std::string out = std::string(&"r\0w\0rw"[(flags & O_ACCMODE) * 2]);
    out += (flags & O_APPEND) != 0 ? "a" : "";
    out += (::fcntl(dev.fd(), F_GETFD) & FD_CLOEXEC) == 0 ? " inherited" : "";
    return out + (std::filesystem::file_size(path) == 0 ? "t" : "");
}

// IODevice takes IO_APPEND and refuses IO_APPEND_READ; File is the other way
// round, and opens IO_WRITE read-write and IO_TRUNCATE write-only.
TEST_F(FileTest, IODeviceAndFileEachOpenItsOwnFlagsForAMode) {
    const char* expected[8] = {"r r",    "w rw",   "rw rw",  "rwa -",
                               "rwt wt", "rw rwt", "rwa wa", "- rwa"};
    for (int mode = IO_READ; mode <= IO_APPEND_READ; ++mode) {
        EXPECT_EQ(opened<IODevice>(dir + "/m", mode) + " " + opened<File>(dir + "/m", mode),
                  expected[mode]);
    }
    EXPECT_EQ(line("Unsupport IO"), "<E>DATE [IODevice::open,L#] Unsupport IO Mode: 7!");
    EXPECT_EQ(line("Unsupport mode"), "<E>DATE [File::open,L#] Unsupport mode(3)");
}

// A fifo opened read-write neither blocks on open nor reports hang-up; a
// timeout gives -2 without a message. File's reopening replaces the stream
// without leaking; an empty line and the end of the file both give 0, the
// end keeping the partial line.
TEST_F(FileTest, RefusesClosedDevicesCreatesOnlyInCreatingModesReopensWaitsAndReadsLines) {
    std::string path = dir + "/dev", fifo = dir + "/fifo";
    const std::vector<int> fds = test::openFds();
    {
        IODevice dev, pipe;
        File file;
        EXPECT_TRUE(file.writeData("x", 1) == -1 && !file.open(dir + "/missing", IO_WRITE));
        EXPECT_EQ(line("[File::writeData"), "<E>DATE [File::writeData,L#] file() not open!");
        EXPECT_FALSE(file.isEnd());  // through the virtual getPos()
        EXPECT_EQ(line("[File::getPos"), "<E>DATE [File::getPos,L#] file() not open!");
        std::string p = put("lines", "line\r\r\n\nb");
        ASSERT_TRUE(file.open(p, IO_READ) && file.open(p, IO_READ_WRITE));
        std::string got;  // each line's length and text, up to the end
        for (std::string text; !file.isEnd() && got.size() < 99;)
            got += std::to_string(file.readLine(&text)) + " " + text + "|";
        EXPECT_EQ(got, "5 line\r|0 |0 b|");
        char buf[16] = {};
        ASSERT_TRUE(dev.readData(buf, 4) == -1 && !dev.open(path, IO_READ_WRITE) &&
                    dev.open(path, IO_CREATE));
        EXPECT_EQ(line("device not open"), "<E>DATE [IODevice::readData,L#] device not open.");
        EXPECT_FALSE(dev.open(path, IO_READ));  // the descriptor is kept
        EXPECT_EQ(line("already"), "<E>DATE [IODevice::open,L#] device is already opened!");
        EXPECT_TRUE(dev.writeData("0123456789", 10) == 10 && dev.setPos(8) == 8 &&
                    dev.writeData("XYZ", 3) == 3 && dev.reopen());
        EXPECT_EQ(std::string(buf, std::max(0, dev.readData(buf, sizeof buf))), "01234567XYZ");

        test::LogCapture::get().clear();
        ASSERT_TRUE(::mkfifo(fifo.c_str(), 0600) == 0 && pipe.open(fifo, IO_READ_WRITE));
        EXPECT_TRUE(pipe.recvData(buf, sizeof buf, 20000) == -2 &&
                    pipe.sendData("ping", 4, 100000) == 4);
        EXPECT_EQ(std::string(buf, std::max(0, pipe.recvData(buf, sizeof buf, -1))), "ping");
        EXPECT_TRUE(test::LogCapture::get().lines().empty());
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

// Descriptor 0 (which open() gets when standard input is closed) counts as
// "not open": isOpen() is false and neither close() nor the destructor
// closes it, while the data calls still use it.
TEST_F(FileTest, IODeviceNeverClosesDescriptorZero) {
    EXPECT_TRUE(test::succeedsInChild([path = put("fd0", "abc")] {
        ::close(0);
        auto dev = std::make_unique<IODevice>();
        char byte = 0;
        bool ok = dev->open(path, IO_READ) && dev->fd() == 0 && !dev->isOpen() &&
                  dev->readData(&byte, 1) == 1 && byte == 'a' && dev->close() && dev->fd() == 0;
        dev.reset();
        return ok && test::isOpenFd(0);
    }));
}

namespace fs = std::filesystem;

// std::filesystem is the peer: it agrees but for the trailing slash it keeps.
std::string peerNormal(const char* path) {
    std::string peer = fs::path(path).lexically_normal().string();
    return peer.size() > 1 && peer.back() == '/' ? peer.substr(0, peer.size() - 1) : peer;
}

TEST(FilePath, SplitsJoinsAndNormalisesWithoutTheDisk) {
    const char* cases[][2] = {// path, parent|fileName|stem|extension
                              {"/data/logs/app.log", "/data/logs|app.log|app|log"},
                              {"/data/logs/", "/data|logs|logs|"},
                              {"a.tar.gz", "|a.tar.gz|a.tar|gz"},
                              {".profile", "|.profile|.profile|"},
                              {"dir/name.", "dir|name.|name.|"},
                              {"/", "/|||"},
                              {"//a//b/", "//a|b|b|"},
                              {"", "|||"},
                              {"a/./b/../../..", "a/./b/../..|..|..|"},
                              {"/../x/.", "/../x|.|.|"}};
    for (const auto& c : cases) {
        FilePath p(c[0]);
        EXPECT_EQ(p.parent().toString() + "|" + p.fileName() + "|" + p.stem() + "|" + p.extension(),
                  c[1]);
        EXPECT_EQ(p.normalised().toString(), peerNormal(c[0])) << c[0];
    }
    EXPECT_EQ(
        (FilePath("/data/") / "logs" / "" / "a").toString() + (FilePath("/x") / "/etc").toString(),
        "/data/logs/a/etc");

    const char* relations[][2] = {{"/a/b/c", "/a/x"}, {"/a/b", "/a/b/"}, {"/a", "/a/b/c"},
                                  {"a/b", "a//./c"},  {"../a", "b"},     {"/x", "/"}};
    for (const auto& r : relations) {
        EXPECT_EQ(FilePath(r[0]).relativeTo(r[1]).toString(),
                  fs::path(r[0]).lexically_normal().lexically_relative(peerNormal(r[1])).string())
            << r[0] << " from " << r[1];
    }
    // The first climbs out of the base.
    EXPECT_TRUE(FilePath("a").relativeTo("../b").empty() && FilePath("/a").relativeTo("a").empty());
    EXPECT_EQ(test::LogCapture::get().waitLine("cannot relate"),
              "<E>DATE [FilePath::relativeTo,L#] cannot relate path(/a) to base(a): both must be "
              "absolute or both relative!");
}

// FilePath's predicates beside File's static exists() (false for a
// directory) and type() (of the entry itself, not what a link points to).
TEST_F(FileTest, FilePathAnswersDiskQueriesAboutEachKindOfEntry) {
    std::string file = put("data.bin", "12345");
    test::toolOutput("cd " + dir + " && ln -s data.bin link && ln -s missing dangling && " +
                     "touch -d @1700000000.25 data.bin");
    const std::pair<std::string, const char*> cases[] = {
        // exists, file, directory, link; the size but for a directory | File's view
        {file, "EF-- 5|e0"},
        {dir + "/link", "EF-L 5|e4"},
        {dir, "E-D-|-1"},
        {dir + "/dangling", "---L -1|-4"},
        {"", "---- -1|--1"}};
    for (const auto& [path, expected] : cases) {
        FilePath p(path);
        std::string got = std::string(p.exists() ? "E" : "-") + (p.isFile() ? "F" : "-") +
                          (p.isDirectory() ? "D" : "-") + (p.isLink() ? "L" : "-");
        got += p.isDirectory() ? "" : " " + std::to_string(p.size());
        EXPECT_EQ(got + "|" + (File::exists(path) ? "e" : "-") + std::to_string(File::type(path)),
                  expected)
            << path;
    }
    EXPECT_EQ(line("lstat()"), "<E>DATE [type,L#] lstat() error: No such file or directory!");
    EXPECT_EQ(FilePath(dir + "/link").modifyTime(), 1700000000250000LL);
    EXPECT_EQ(FilePath(dir + "//./link").realPath().toString(), fs::canonical(file).string());
    EXPECT_TRUE(FilePath(dir + "/dangling").realPath().empty() &&
                FilePath("a/../b").absolute().toString() == (fs::current_path() / "b").string());
}

}  // namespace
}  // namespace orvane
