#include <gtest/gtest.h>
#include <linux/can.h>
#include <orvane/SocketCAN.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "net/NetTestUtil.h"

namespace orvane {
namespace {

using nettest::freshCapture;

TEST(CANFrame, KeepsTheKernelLayoutAndItsIdentifierRules) {
    char data[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    CANFrame frame(0x123, data, 3);
    EXPECT_EQ(frame.canid(), 0x123u);
    EXPECT_EQ(frame.id(), 0x123u);
    EXPECT_EQ(frame.dataLen(), 3);
    EXPECT_EQ(memcmp(frame.data(), data, 3), 0);

    // Byte for byte the kernel's frame.
    can_frame raw{};
    static_assert(sizeof raw == sizeof frame, "16 bytes");
    memcpy(&raw, &frame, sizeof raw);
    EXPECT_EQ(raw.can_id, 0x123u);
    EXPECT_EQ(raw.can_dlc, 3);
    EXPECT_EQ(raw.data[2], 3);
    EXPECT_EQ(raw.data[3], 0);
    EXPECT_EQ(raw.__pad, 0);
    EXPECT_EQ(raw.__res0, 0);

    // Out-of-range or missing data leaves the frame without data bytes.
    EXPECT_EQ(CANFrame(0x123, data, 9).dataLen(), 0);
    EXPECT_EQ(CANFrame(0x123, data, 0).dataLen(), 0);
    EXPECT_EQ(CANFrame(0x123, nullptr, 4).dataLen(), 0);
    EXPECT_EQ(CANFrame(0x123, data, 8).dataLen(), 8);
    CANFrame empty;
    EXPECT_EQ(empty.canid(), 0u);
    EXPECT_EQ(empty.dataLen(), 0);

    // Extended format sets bit 31, yet id() keeps 11 bits: format() is 0 for every frame.
    CANFrame extended(0x1ABCDE, data, 8, 1);
    EXPECT_EQ(extended.canid(), 0x801ABCDEu);
    EXPECT_EQ(extended.id(), 0x4DEu);
    EXPECT_EQ(extended.format(), 0);
    EXPECT_EQ(extended.type(), 0);
    EXPECT_EQ(extended.error(), 0);
    EXPECT_EQ(CANFrame(0x1ABCDE, data, 8, 2).canid(), 0x1ABCDEu);
}

TEST(SocketCAN, RejectsBadCallsWithOneLineEach) {
    auto& capture = freshCapture();
    int before = test::openFdCount();
    SocketCAN can;
    char buf[64] = {};
    EXPECT_EQ(can.recvData(buf, 15, 0), -1);
    EXPECT_EQ(capture.waitLine("param error"),
              "<E>DATE [SocketCAN::recvData,L#] param error,len:15,min:16.");
    EXPECT_EQ(can.recvData(buf, 64, 0), -1);
    EXPECT_EQ(capture.waitLine("socket not open"),
              "<E>DATE [SocketCAN::recvData,L#] socket not open.");
    EXPECT_EQ(can.recvFrame(nullptr, 0), -1);
    EXPECT_TRUE(capture.waitFor("param error,len:16,min:16."));
    EXPECT_EQ(can.sendData(nullptr, 16, 0), -1);
    EXPECT_EQ(capture.waitLine("[SocketCAN::sendData"),
              "<E>DATE [SocketCAN::sendData,L#] param error.");
    EXPECT_EQ(can.sendFrame(CANFrame(), 0), -1);
    EXPECT_TRUE(capture.waitFor("socket not open.", 3000, 2));
    EXPECT_EQ(can.peekData(buf, 16, 0), -1);
    EXPECT_EQ(can.setOption(SOCK_OPT_RCVBUF, 1), -1);
    EXPECT_EQ(can.getOption(SOCK_OPT_RCVBUF), -1);
    EXPECT_FALSE(can.setConnection("vcan0", 0));

    // Without CAN support the socket cannot be created; with it, an unknown
    // interface fails silently. Either way nothing stays open.
    int probe = socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
    int err = errno;
    if (probe >= 0) ::close(probe);
    capture.clear();
    EXPECT_FALSE(can.open("nosuchcan0", 0));
    EXPECT_FALSE(can.isOpen());
    if (probe < 0) {
        EXPECT_EQ(capture.waitLine("open socket"),
                  std::string("<E>DATE [SocketCAN::open,L#] open socket error:") + strerror(err));
    }
    EXPECT_EQ(can.interface(), "");
    EXPECT_EQ(test::openFdCount(), before);
}

// A virtual CAN interface for the test's lifetime, where the kernel has one.
class VirtualCan {
  public:
    VirtualCan() : name("ovcan" + std::to_string(getpid() % 10000)) {
        std::string add = "ip link add dev " + name +
                          " type vcan > /dev/null 2>&1 && ip link set " + name +
                          " up > /dev/null 2>&1";
        ok = system(add.c_str()) == 0;
    }
    ~VirtualCan() {
        if (ok) system(("ip link del dev " + name + " > /dev/null 2>&1").c_str());
    }
    std::string name;
    bool ok = false;
};

TEST(SocketCAN, CarriesFramesOverAVirtualInterface) {
    VirtualCan vcan;
    if (!vcan.ok) {
        GTEST_SKIP() << "no virtual CAN interface: the kernel lacks vcan support or this is "
                        "not root (ip link add type vcan failed)";
    }
    int before = test::openFdCount();
    {
        // The interface lookup drops the name's last character.
        std::string openName = vcan.name + "x";
        SocketCAN sender;
        SocketCAN receiver;
        ASSERT_TRUE(sender.open(openName, 0));
        ASSERT_TRUE(receiver.open(openName, 0));
        EXPECT_EQ(sender.interface(), openName);

        CANFrame received;
        EXPECT_EQ(receiver.recvFrame(&received, 0), -2);  // idle bus
        char data[4] = {'a', 'b', 'c', 'd'};
        EXPECT_EQ(sender.sendFrame(CANFrame(0x1ABCDE, data, 4, 1), 1000000), 0);
        EXPECT_EQ(receiver.recvFrame(&received, 1000000), 0);
        EXPECT_EQ(received.canid(), 0x801ABCDEu);
        EXPECT_EQ(received.dataLen(), 4);
        EXPECT_EQ(memcmp(received.data(), data, 4), 0);

        // A larger buffer still takes one 16-byte frame.
        EXPECT_EQ(sender.sendFrame(CANFrame(0x42, data, 2), 1000000), 0);
        EXPECT_EQ(sender.sendFrame(CANFrame(0x43, data, 1), 1000000), 0);
        alignas(8) char buf[64] = {};
        EXPECT_EQ(receiver.recvData(buf, sizeof buf, 1000000), 16);
        EXPECT_EQ(receiver.recvData(buf, sizeof buf, 1000000), 16);
        EXPECT_EQ(reinterpret_cast<CANFrame*>(buf)->canid(), 0x43u);
        EXPECT_EQ(sender.sendData(data, 4, 1000000), -1);  // not a whole frame
    }
    EXPECT_EQ(test::openFdCount(), before);
}

}  // namespace
}  // namespace orvane
