#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/File.h>
#include <orvane/IODevice.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

// A file holding "0123456789" in a private temporary directory.
class IODeviceTest : public test::TempDirTest {
  protected:
    void SetUp() override {
        test::TempDirTest::SetUp();
        path = put("dev", "0123456789");
    }

    std::string path;
};

TEST_F(IODeviceTest, OpensEachAcceptedModeWithItsFlagsAndRefusesTheRest) {
    const test::ModeCase cases[] = {
        {IO_READ, O_RDONLY, false, false},       {IO_WRITE, O_WRONLY, false, false},
        {IO_READ_WRITE, O_RDWR, false, false},   {IO_APPEND, O_RDWR, true, false},
        {IO_TRUNCATE, O_RDWR, false, true},      {IO_CREATE, O_RDWR, false, false},
        {IO_CREATE_APPEND, O_RDWR, true, false},
    };
    for (const test::ModeCase& c : cases) {
        put("dev", "0123456789");
        IODevice dev;
        ASSERT_TRUE(dev.open(path, c.mode)) << "mode " << c.mode;
        int flags = 0;
        ASSERT_TRUE(dev.getFlags(&flags));
        EXPECT_EQ(flags & O_ACCMODE, c.access) << "mode " << c.mode;
        EXPECT_EQ((flags & O_APPEND) != 0, c.append) << "mode " << c.mode;
        EXPECT_NE(::fcntl(dev.fd(), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_TRUE(dev.isOpen());
        EXPECT_TRUE(dev.close());
        EXPECT_FALSE(dev.isOpen());
        EXPECT_EQ(File::getSize(path), c.truncates ? 0u : 10u) << "mode " << c.mode;
    }

    IODevice dev;
    EXPECT_FALSE(dev.open(path, IO_APPEND_READ));
    EXPECT_EQ(line("Unsupport"), "<E>DATE [IODevice::open,L#] Unsupport IO Mode: 7!");
    EXPECT_FALSE(dev.open(path, 8));
    EXPECT_FALSE(dev.open(path, -1));
    EXPECT_FALSE(dev.open("", IO_READ));
    EXPECT_TRUE(test::LogCapture::get().waitFor("[IODevice::open,L", 3000, 4));
    EXPECT_EQ(test::LogCapture::get().matching("param error!").size(), 3u);
    EXPECT_EQ(dev.fd(), -1);
}

TEST_F(IODeviceTest, CreatesMissingFilesOnlyInCreatingModes) {
    std::string fresh = path + ".new";
    IODevice dev;
    EXPECT_FALSE(dev.open(fresh, IO_READ_WRITE));
    EXPECT_EQ(line("open " + fresh),
              "<E>DATE [IODevice::open,L#] open " + fresh + " error: No such file or directory!");
    EXPECT_LT(dev.fd(), 0);
    ASSERT_TRUE(dev.open(fresh, IO_CREATE));
    struct stat st;
    ASSERT_EQ(::stat(fresh.c_str(), &st), 0);
    mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask);

    EXPECT_FALSE(dev.open(path, IO_READ));
    EXPECT_EQ(line("already"), "<E>DATE [IODevice::open,L#] device is already opened!");
    dev.close();
    ::unlink(fresh.c_str());
}

TEST_F(IODeviceTest, ReadsWritesSeeksAndReopensWithTheSameMode) {
    IODevice dev;
    ASSERT_TRUE(dev.open(path, IO_READ_WRITE));
    char buf[16] = {};
    EXPECT_EQ(dev.readData(buf, 4), 4);
    EXPECT_EQ(std::string(buf, 4), "0123");
    EXPECT_EQ(dev.getPos(), 4);
    EXPECT_EQ(dev.setPos(8), 8);
    EXPECT_EQ(dev.writeData("XYZ", 3), 3);
    EXPECT_EQ(dev.getPos(), 11);
    EXPECT_EQ(dev.setPos(-5), -1);

    EXPECT_TRUE(dev.reopen());
    EXPECT_EQ(dev.getPos(), 0);
    EXPECT_EQ(dev.readData(buf, sizeof buf), 11);
    EXPECT_EQ(std::string(buf, 11), "01234567XYZ");
    EXPECT_FALSE(dev.setIOBuffer(4096));
    EXPECT_EQ(line("not implement"), "<W>DATE [IODevice::setIOBuffer,L#] not implement!");
}

TEST_F(IODeviceTest, RejectsBadBuffersAndClosedDescriptorsWithTheirOwnTexts) {
    IODevice dev;
    char buf[4];
    EXPECT_EQ(dev.readData(buf, 4), -1);
    EXPECT_EQ(line("device not open"), "<E>DATE [IODevice::readData,L#] device not open.");
    EXPECT_EQ(dev.sendData("x", 1, 0), -1);
    EXPECT_EQ(line("[IODevice::sendData"), "<E>DATE [IODevice::sendData,L#] device not open.");
    EXPECT_EQ(dev.getPos(), -1);
    EXPECT_EQ(line("not open!"), "<E>DATE [IODevice::getPos,L#] file() not open!");
    int flags = 0;
    EXPECT_FALSE(dev.getFlags(nullptr));
    EXPECT_FALSE(dev.setFlags(O_NONBLOCK));
    EXPECT_EQ(line("get flags"),
              "<E>DATE [IODevice::getFlags,L#] get flags error: Bad file descriptor!");
    EXPECT_TRUE(dev.close());

    ASSERT_TRUE(dev.open(path, IO_READ_WRITE));
    EXPECT_EQ(dev.readData(nullptr, 4), -1);
    EXPECT_EQ(line("param error!"), "<E>DATE [IODevice::readData,L#] param error!");
    EXPECT_EQ(dev.writeData("x", 0), -1);
    EXPECT_EQ(line("[IODevice::writeData"), "<E>DATE [IODevice::writeData,L#] param error.");
    EXPECT_EQ(dev.recvData(buf, -3, 0), -1);
    EXPECT_EQ(line("[IODevice::recvData"), "<E>DATE [IODevice::recvData,L#] param error.");
    EXPECT_EQ(dev.sendData(nullptr, 1, 0), -1);
    EXPECT_TRUE(test::LogCapture::get().waitFor("param error.", 3000, 3));

    EXPECT_TRUE(dev.setFlags(O_NONBLOCK));
    ASSERT_TRUE(dev.getFlags(&flags));
    EXPECT_NE(flags & O_NONBLOCK, 0);
    EXPECT_EQ(flags & O_ACCMODE, O_RDWR);
}

TEST_F(IODeviceTest, WaitsForReadinessAndTimesOutWithoutAMessage) {
    std::string fifo = path + ".fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    {
        IODevice dev;
        // Read-write keeps the pipe from blocking on open and from reporting hang-up.
        ASSERT_TRUE(dev.open(fifo, IO_READ_WRITE));
        char buf[8] = {};
        EXPECT_EQ(dev.recvData(buf, sizeof buf, 0), -2);
        EXPECT_EQ(dev.recvData(buf, sizeof buf, 20000), -2);
        EXPECT_EQ(dev.sendData("ping", 4, 100000), 4);
        EXPECT_EQ(dev.recvData(buf, sizeof buf, -1), 4);
        EXPECT_EQ(std::string(buf, 4), "ping");
    }
    ::unlink(fifo.c_str());
    EXPECT_TRUE(test::LogCapture::get().matching("select").empty());
}

TEST_F(IODeviceTest, AcceptsOneFourKiBAlignedWriteMergeSizeWhileClosed) {
    IODevice dev;
    EXPECT_FALSE(dev.setWMBuffer(1000));
    EXPECT_EQ(line("aligned"), "<E>DATE [IODevice::setWMBuffer,L#] size should be 4k aligned!");
    EXPECT_TRUE(dev.setWMBuffer(0));
    EXPECT_TRUE(dev.setWMBuffer(4096));
    EXPECT_FALSE(dev.setWMBuffer(8192));
    EXPECT_EQ(line("exists"), "<E>DATE [IODevice::setWMBuffer,L#] mm buffer exists!");

    IODevice opened;
    ASSERT_TRUE(opened.open(path, IO_READ));
    EXPECT_FALSE(opened.setWMBuffer(4096));
    EXPECT_EQ(line("cannot set"),
              "<E>DATE [IODevice::setWMBuffer,L#] cannot set after file is open!");
}

TEST_F(IODeviceTest, InheritedOperationsOnAFileCarryTheBaseClassTag) {
    File file;
    ASSERT_TRUE(file.open(path, IO_READ_WRITE));
    char buf[4];
    EXPECT_EQ(file.recvData(nullptr, 4, 0), -1);
    EXPECT_EQ(line("param error."), "<E>DATE [IODevice::recvData,L#] param error.");
    EXPECT_EQ(file.recvData(buf, 4, 0), 4);

    // File::open does not record the mode, so re-opening a File fails.
    EXPECT_FALSE(file.reopen());
    EXPECT_EQ(line("Unsupport"), "<E>DATE [File::open,L#] Unsupport mode(-1)");
    EXPECT_FALSE(file.isOpen());
}

}  // namespace
}  // namespace orvane
