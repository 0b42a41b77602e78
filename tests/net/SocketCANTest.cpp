#include <gtest/gtest.h>
#include <linux/can.h>
#include <orvane/SocketCAN.h>

#include <cstring>

#include "net/NetTestUtil.h"
#include "support/Descriptors.h"

namespace orvane {
namespace {

TEST(CANFrame, KeepsTheKernelLayoutAndItsIdentifierRules) {
    char data[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    can_frame expected{0x123, 3, {}, {}, {}, {1, 2, 3}};
    CANFrame frame(0x123, data, 3);
    static_assert(sizeof expected == sizeof frame, "16 bytes");
    EXPECT_EQ(memcmp(&expected, &frame, sizeof frame), 0);  // byte for byte, padding zeroed
    // Out-of-range or missing data leaves the frame without data bytes.
    EXPECT_EQ(CANFrame(0x123, data, 9).dataLen() + CANFrame(0x123, nullptr, 4).dataLen(), 0);
    // Extended format sets bit 31, yet id() keeps 11 bits.
    CANFrame extended(0x1ABCDE, data, 8, 1);
    EXPECT_EQ(extended.canid(), 0x801ABCDEu);
    EXPECT_EQ(extended.id(), 0x4DEu);
    EXPECT_EQ(CANFrame(0x1ABCDE, data, 8, 2).canid(), 0x1ABCDEu);
}

TEST(SocketCAN, RejectsBadCallsWithOneLineEachAndLeaksNothing) {
    const std::vector<int> before = test::openFds();
    SocketCAN can;
    char buf[64] = {};
    nettest::expectOneLineEach({
        {[&] { return can.recvData(buf, 15, 0); },
         "[SocketCAN::recvData,L#] param error,len:15,min:16."},
        {[&] { return can.recvData(buf, 64, 0); }, "[SocketCAN::recvData,L#] socket not open."},
    });
    EXPECT_FALSE(can.open("nosuchcan0", 0));  // with or without CAN support
    EXPECT_EQ(test::fdsOpenedSince(before), std::vector<int>());
}

TEST(SocketCAN, CarriesFramesOverAVirtualInterface) {
    std::string name = "ovcan" + std::to_string(getpid() % 10000);
    if (system(
            ("ip link add dev " + name + " type vcan 2> /dev/null && ip link set " + name + " up")
                .c_str()) != 0) {
        GTEST_SKIP() << "no virtual CAN interface: the kernel lacks vcan support or this is "
                        "not root (ip link add type vcan failed)";
    }
    {
        SocketCAN sender, receiver;  // the interface lookup drops the name's last character
        EXPECT_TRUE(sender.open(name + "x", 0) && receiver.open(name + "x", 0));
        CANFrame received;
        EXPECT_EQ(receiver.recvFrame(&received, 0), -2);  // idle bus
        EXPECT_EQ(sender.sendFrame(CANFrame(0x1ABCDE, "abcd", 4, 1), 1000000), 0);
        EXPECT_EQ(receiver.recvFrame(&received, 1000000), 0);
        EXPECT_EQ(received.canid(), 0x801ABCDEu);
        EXPECT_EQ(std::string(received.data(), received.dataLen()), "abcd");
    }
    system(("ip link del dev " + name + " 2> /dev/null").c_str());
}

}  // namespace
}  // namespace orvane
