#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/IODevice.h>
#include <sys/stat.h>

#include <string>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

using IODeviceTest = test::TempDirTest;

// IODevice takes IO_APPEND and refuses IO_APPEND_READ; File is the other way round.
TEST_F(IODeviceTest, OpensEachAcceptedModeWithItsFlagsAndRefusesAppendRead) {
    checkModes<IODevice>({{IO_READ, O_RDONLY, false, false},
                          {IO_WRITE, O_WRONLY, false, false},
                          {IO_READ_WRITE, O_RDWR, false, false},
                          {IO_APPEND, O_RDWR, true, false},
                          {IO_TRUNCATE, O_RDWR, false, true},
                          {IO_CREATE, O_RDWR, false, false},
                          {IO_CREATE_APPEND, O_RDWR, true, false}});
    IODevice dev;
    EXPECT_FALSE(dev.open(put("dev", ""), IO_APPEND_READ));
    EXPECT_EQ(line("Unsupport"), "<E>DATE [IODevice::open,L#] Unsupport IO Mode: 7!");
}

TEST_F(IODeviceTest, CreatesOnlyInCreatingModesAndReopensWithTheSameMode) {
    std::string path = dir + "/dev";
    IODevice dev;
    EXPECT_FALSE(dev.open(path, IO_READ_WRITE));
    EXPECT_EQ(line("open " + path),
              "<E>DATE [IODevice::open,L#] open " + path + " error: No such file or directory!");
    ASSERT_TRUE(dev.open(path, IO_CREATE));
    EXPECT_FALSE(dev.open(path, IO_READ));  // still open: the descriptor is kept
    EXPECT_EQ(dev.writeData("0123456789", 10), 10);
    EXPECT_EQ(dev.setPos(8), 8);
    EXPECT_EQ(dev.writeData("XYZ", 3), 3);
    EXPECT_TRUE(dev.reopen());
    char buf[16] = {};
    EXPECT_EQ(dev.readData(buf, sizeof buf), 11);
    EXPECT_EQ(std::string(buf, 11), "01234567XYZ");
}

TEST_F(IODeviceTest, RefusesBadArgumentsAndClosedDevicesWithoutLeaking) {
    auto& capture = test::LogCapture::get();
    int fds = test::openFdCount();
    {
        IODevice dev;
        char buf[4];
        EXPECT_FALSE(dev.open("", IO_READ));
        EXPECT_FALSE(dev.open(dir, -1));
        EXPECT_EQ(dev.readData(buf, 4), -1);
        EXPECT_EQ(line("device not open"), "<E>DATE [IODevice::readData,L#] device not open.");
        EXPECT_FALSE(dev.setWMBuffer(1000));
        EXPECT_EQ(line("aligned"), "<E>DATE [IODevice::setWMBuffer,L#] size should be 4k aligned!");

        ASSERT_TRUE(dev.open(put("dev", "abc"), IO_READ_WRITE));
        EXPECT_EQ(dev.readData(nullptr, 4), -1);
        EXPECT_EQ(dev.writeData("x", 0), -1);
        EXPECT_EQ(line("param error."), "<E>DATE [IODevice::writeData,L#] param error.");
        EXPECT_EQ(dev.sendData(nullptr, 1, 0), -1);
        EXPECT_TRUE(capture.waitFor("param error!", 3000, 3));  // open twice, readData
        EXPECT_TRUE(capture.waitFor("param error.", 3000, 2));
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST_F(IODeviceTest, WaitsForReadinessAndTimesOutWithoutAMessage) {
    std::string fifo = dir + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    IODevice dev;
    // Read-write keeps the pipe from blocking on open and from reporting hang-up.
    ASSERT_TRUE(dev.open(fifo, IO_READ_WRITE));
    char buf[8] = {};
    EXPECT_EQ(dev.recvData(buf, sizeof buf, 20000), -2);
    EXPECT_EQ(dev.sendData("ping", 4, 100000), 4);
    EXPECT_EQ(dev.recvData(buf, sizeof buf, -1), 4);
    EXPECT_EQ(std::string(buf, 4), "ping");
    EXPECT_TRUE(test::LogCapture::get().lines().empty());
}

}  // namespace
}  // namespace orvane
