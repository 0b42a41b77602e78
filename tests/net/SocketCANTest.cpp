#include <gtest/gtest.h>
#include <linux/can.h>
#include <orvane/SocketCAN.h>

#include <cstring>

namespace orvane {
namespace {

TEST(CANFrame, KeepsTheKernelLayoutAndItsIdentifierRules) {
    char data[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    const can_frame expected{0x123, {3}, 0, 0, 0, {1, 2, 3}};
    CANFrame frame(0x123, data, 3);
    EXPECT_EQ(memcmp(&expected, &frame, sizeof frame), 0);  // byte for byte, padding zeroed
    // Out-of-range or missing data leaves the frame without data bytes.
    EXPECT_EQ(CANFrame(0x123, data, 9).dataLen() + CANFrame(0x123, nullptr, 4).dataLen(), 0);
    // Extended format sets bit 31, yet id() keeps 11 bits.
    CANFrame extended(0x1ABCDE, data, 8, 1);
    EXPECT_EQ(extended.canid(), 0x801ABCDEu);
    EXPECT_EQ(extended.id(), 0x4DEu);
    EXPECT_EQ(CANFrame(0x1ABCDE, data, 8, 2).canid(), 0x1ABCDEu);
}

}  // namespace
}  // namespace orvane
