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
    can_frame expected{};
    expected.can_id = 0x123;
    expected.can_dlc = 3;
    memcpy(expected.data, data, 3);
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

}  // namespace
}  // namespace orvane
