#include <orvane/Array.h>
#include <orvane/Endian.h>

#include "support/Refusal.h"

namespace orvane {
namespace {

using test::expectRefusal;

TEST(Endian, ReadsAndWritesAtAnUnalignedOffsetWithinTheBuffer) {
    const uint8_t bytes[] = {0xAA, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0xFF};
    EXPECT_EQ(Endian::readBig<uint64_t>(bytes + 1), 0x0102030405060708ull);
    uint8_t out[6] = {};
    EXPECT_TRUE(Endian::writeLittle<int32_t>(out, sizeof out, 2, -2));
    const uint8_t want[6] = {0, 0, 0xFE, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(memcmp(out, want, sizeof out), 0);
    // An offset near SIZE_MAX must not wrap the bounds check round.
    uint32_t value = 99;
    EXPECT_FALSE(Endian::readBig(bytes, sizeof bytes, 7, &value));
    expectRefusal([&] { return Endian::writeLittle<uint16_t>(out, sizeof out, SIZE_MAX, 0); },
                  "<E>DATE [writeLittle,L#] 2 bytes at offset " + std::to_string(SIZE_MAX) +
                      " overruns a buffer of 6 bytes");
    EXPECT_TRUE(value == 99u && memcmp(out, want, sizeof out) == 0);
}

TEST(Array, KeepsOrderWithinItsCapacityAndDestroysEachElementOnce) {
    Array<std::string, 4> names{"b", "d"};
    EXPECT_TRUE(names.insert(0, "a") && names.insert(2, "c"));
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()),
              (std::vector<std::string>{"a", "b", "c", "d"}));
    std::string got;
    expectRefusal([&] { return names.push("e"); }, "<E>DATE [Array::push,L#] full (capacity 4)");
    EXPECT_FALSE(names.get(4, &got));
    EXPECT_TRUE(names.erase(1) && names.pop(&got) && names.set(1, "C") && got == "d");
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()),
              (std::vector<std::string>{"a", "C"}));
    names.clear();
    EXPECT_FALSE(names.pop());

    auto token = std::make_shared<int>(0);
    {
        Array<std::shared_ptr<int>, 8> held;
        for (int i = 0; i < 6; ++i) held.push(token);
        EXPECT_TRUE(held.erase(0) && held.insert(2, token) && held.pop());
        Array<std::shared_ptr<int>, 8> copy(held);
        EXPECT_EQ(token.use_count(), 11);
    }
    EXPECT_EQ(token.use_count(), 1);
}

TEST(ByteArray, BuildsAndParsesAFrameWithinItsSize) {
    ByteArray<8> frame;
    EXPECT_TRUE(frame.appendBig<uint16_t>(0xA55A) && frame.appendLittle<uint32_t>(0x01020304) &&
                frame.append("\x7f", 1));
    EXPECT_EQ(frame.toString(), std::string("\xA5\x5A\x04\x03\x02\x01\x7F", 7));
    uint32_t value = 0;
    EXPECT_TRUE(frame.writeBig<uint16_t>(5, 0xBEEF) && frame.readLittle(2, &value) &&
                value == 0xBE020304u);
    // Reads stop at the size, not the capacity.
    expectRefusal(
        [&] { return frame.readBig(4, &value); },
        "<E>DATE [ByteArray::readBig,L#] 4 bytes at offset 4 overrun (size 7, capacity 8)");
    EXPECT_TRUE(!frame.appendBig<uint16_t>(1) && frame.size() == 7u);
}

}  // namespace
}  // namespace orvane
