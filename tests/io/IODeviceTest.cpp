#include <orvane/File.h>
#include <orvane/IODevice.h>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using IODeviceTest = test::TempDirTest;

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
TEST_F(IODeviceTest, EachClassOpensItsOwnFlagsForAMode) {
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
// timeout gives -2 without a message.
TEST_F(IODeviceTest, CreatesOnlyInCreatingModesReopensAndWaits) {
    std::string path = dir + "/dev", fifo = dir + "/fifo";
    const std::vector<int> fds = test::openFds();
    {
        IODevice dev, pipe;
        char buf[16] = {};
        EXPECT_EQ(dev.readData(buf, 4), -1);
        EXPECT_EQ(line("device not open"), "<E>DATE [IODevice::readData,L#] device not open.");
        ASSERT_TRUE(!dev.open(path, IO_READ_WRITE) && dev.open(path, IO_CREATE));
        EXPECT_FALSE(dev.open(path, IO_READ));  // the descriptor is kept
        EXPECT_EQ(line("already"), "<E>DATE [IODevice::open,L#] device is already opened!");
        EXPECT_TRUE(dev.writeData("0123456789", 10) == 10 && dev.setPos(8) == 8 &&
                    dev.writeData("XYZ", 3) == 3 && dev.reopen());
        EXPECT_EQ(std::string(buf, std::max(0, dev.readData(buf, sizeof buf))), "01234567XYZ");

        test::LogCapture::get().clear();
        ASSERT_TRUE(::mkfifo(fifo.c_str(), 0600) == 0 && pipe.open(fifo, IO_READ_WRITE));
        EXPECT_EQ(pipe.recvData(buf, sizeof buf, 20000), -2);
        EXPECT_EQ(pipe.sendData("ping", 4, 100000), 4);
        EXPECT_EQ(std::string(buf, std::max(0, pipe.recvData(buf, sizeof buf, -1))), "ping");
        EXPECT_TRUE(test::LogCapture::get().lines().empty());
    }
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

// Descriptor 0 (which open() gets when standard input is closed) counts as
// "not open": isOpen() is false and neither close() nor the destructor
// closes it, while the data calls still use it.
TEST_F(IODeviceTest, NeverClosesDescriptorZero) {
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

}  // namespace
}  // namespace orvane
