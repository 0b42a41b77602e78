#include <gtest/gtest.h>
#include <orvane/Array.h>
#include <orvane/Endian.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace orvane {
namespace {

std::vector<std::string> linesOf(const std::function<void()>& action) {
    return test::LogCapture::get().linesDuring(action);
}

TEST(Endian, SwapsAndReadsAndWritesEveryWidthAtAnyOffset) {
    static_assert(Endian::swap16(0x1234) == 0x3412, "");
    static_assert(Endian::swap32(0x12345678u) == 0x78563412u, "");
    static_assert(Endian::swap64(0x0102030405060708ull) == 0x0807060504030201ull, "");
    static_assert(Endian::isLittleHost() != Endian::isBigHost(), "");
    static_assert(Endian::swap<int16_t>(-2) == int16_t(0xFEFF), "");
    static_assert(Endian::fromBig(Endian::toBig(0x11223344u)) == 0x11223344u, "");
    const uint8_t bytes[] = {0xAA, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0xFF};
    // Offset 1 is unaligned for every width wider than a byte.
    EXPECT_EQ(Endian::readBig<uint16_t>(bytes + 1), 0x0102);
    EXPECT_EQ(Endian::readLittle<uint16_t>(bytes + 1), 0x0201);
    EXPECT_EQ(Endian::readBig<uint32_t>(bytes + 1), 0x01020304u);
    EXPECT_EQ(Endian::readLittle<uint32_t>(bytes + 1), 0x04030201u);
    EXPECT_EQ(Endian::readBig<uint64_t>(bytes + 1), 0x0102030405060708ull);
    EXPECT_EQ(Endian::readLittle<uint64_t>(bytes + 1), 0x0807060504030201ull);
    EXPECT_EQ(Endian::readBig<int16_t>(bytes + 8), int16_t(0x08FF));
    EXPECT_EQ(Endian::readLittle<int16_t>(bytes + 8), int16_t(-248));
    EXPECT_EQ(Endian::readBig<uint8_t>(bytes + 9), 0xFF);
    EXPECT_EQ(Endian::toBig<uint16_t>(0x0102), Endian::readLittle<uint16_t>(bytes + 1));

    uint8_t out[12] = {};
    Endian::writeLittle<uint16_t>(out + 1, 0xCAFE);
    Endian::writeBig<uint32_t>(out + 3, 0xDEADBEEF);
    EXPECT_TRUE(Endian::writeLittle<int32_t>(out, sizeof out, 8, -2));
    const uint8_t want[12] = {0, 0xFE, 0xCA, 0xDE, 0xAD, 0xBE, 0xEF, 0, 0xFE, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(memcmp(out, want, sizeof out), 0);
}

TEST(Endian, CheckedFormsRefuseAnOverrunWithOneLine) {
    uint8_t buf[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    uint32_t value = 99;
    struct Case {
        std::function<bool()> call;
        std::string line;
    };
    const std::vector<Case> cases = {
        {[&] { return Endian::readBig(buf, sizeof buf, 5, &value); },
         "<E>DATE [readBig,L#] 4 bytes at offset 5 overruns a buffer of 8 bytes"},
        {[&] { return Endian::readLittle(buf, sizeof buf, SIZE_MAX - 1, &value); },
         "<E>DATE [readLittle,L#] 4 bytes at offset 18446744073709551614 overruns a buffer of 8 "
         "bytes"},
        {[&] { return Endian::writeBig<uint64_t>(buf, sizeof buf, 1, 0); },
         "<E>DATE [writeBig,L#] 8 bytes at offset 1 overruns a buffer of 8 bytes"},
        {[&] { return Endian::writeLittle<uint8_t>(buf, 0, 0, 0); },
         "<E>DATE [writeLittle,L#] 1 bytes at offset 0 overruns a buffer of 0 bytes"},
        {[&] { return Endian::readBig<uint16_t>(nullptr, 8, 0, nullptr); },
         "<E>DATE [readBig,L#] null buffer or output"},
    };
    for (const Case& c : cases) {
        bool ok = true;
        EXPECT_EQ(linesOf([&] { ok = c.call(); }), std::vector<std::string>{c.line});
        EXPECT_FALSE(ok);
    }
    EXPECT_EQ(value, 99u);
    EXPECT_EQ(buf[7], 8);
    EXPECT_TRUE(Endian::readBig(buf, sizeof buf, 4, &value));
    EXPECT_EQ(value, 0x05060708u);
}

TEST(Array, GrowsToItsCapacityAndRefusesEveryOverrun) {
    Array<std::string, 4> names{"b", "d"};
    EXPECT_TRUE(names.insert(0, "a"));
    EXPECT_TRUE(names.insert(2, "c"));
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()),
              (std::vector<std::string>{"a", "b", "c", "d"}));
    EXPECT_TRUE(names.full());
    std::string got;
    struct Case {
        std::function<bool()> call;
        std::string line;
    };
    const std::vector<Case> refused = {
        {[&] { return names.push("e"); }, "<E>DATE [Array::push,L#] full (capacity 4)"},
        {[&] { return names.insert(1, "e"); }, "<E>DATE [Array::insert,L#] full (capacity 4)"},
        {[&] { return names.at(4) != nullptr; },
         "<E>DATE [Array::at,L#] index 4 out of range (size 4)"},
        {[&] { return names.get(9, &got); },
         "<E>DATE [Array::get,L#] index 9 out of range (size 4)"},
        {[&] { return names.set(4, "x"); },
         "<E>DATE [Array::set,L#] index 4 out of range (size 4)"},
        {[&] { return names.erase(4); }, "<E>DATE [Array::erase,L#] index 4 out of range (size 4)"},
    };
    for (const Case& c : refused) {
        bool ok = true;
        EXPECT_EQ(linesOf([&] { ok = c.call(); }), std::vector<std::string>{c.line});
        EXPECT_FALSE(ok);
    }
    EXPECT_EQ(names.size(), 4u);
    EXPECT_TRUE(names.erase(1));
    EXPECT_TRUE(names.pop(&got));
    EXPECT_EQ(got, "d");
    EXPECT_TRUE(names.set(1, "C"));
    EXPECT_TRUE(names.get(1, &got));
    EXPECT_EQ(got, "C");
    Array<std::string, 4> copy = names;
    names.clear();
    EXPECT_EQ(std::vector<std::string>(copy.begin(), copy.end()),
              (std::vector<std::string>{"a", "C"}));
    EXPECT_EQ(linesOf([&] { EXPECT_FALSE(names.pop()); }),
              std::vector<std::string>{"<E>DATE [Array::pop,L#] empty"});
    EXPECT_EQ(linesOf([&] { EXPECT_EQ(names.front(), nullptr); }),
              std::vector<std::string>{"<E>DATE [Array::front,L#] index 0 out of range: empty"});
}

TEST(Array, DestroysEachElementOnce) {
    auto token = std::make_shared<int>(0);
    {
        Array<std::shared_ptr<int>, 8> held;
        for (int i = 0; i < 6; ++i) held.push(token);
        held.erase(0);
        held.insert(2, token);
        held.pop();
        Array<std::shared_ptr<int>, 8> copy(held);
        EXPECT_EQ(token.use_count(), 11);
    }
    EXPECT_EQ(token.use_count(), 1);
}

TEST(ByteArray, BuildsAndParsesAFrameWithinItsSize) {
    ByteArray<8> frame;
    EXPECT_TRUE(frame.appendBig<uint16_t>(0xA55A));
    EXPECT_TRUE(frame.appendLittle<uint32_t>(0x01020304));
    EXPECT_TRUE(frame.append("\x7f", 1));
    EXPECT_EQ(frame.toString(), std::string("\xA5\x5A\x04\x03\x02\x01\x7F", 7));
    uint32_t value = 0;
    EXPECT_TRUE(frame.readLittle(2, &value));
    EXPECT_EQ(value, 0x01020304u);
    EXPECT_TRUE(frame.writeBig<uint16_t>(5, 0xBEEF));
    uint16_t tail = 0;
    EXPECT_TRUE(frame.readBig(5, &tail));
    EXPECT_EQ(tail, 0xBEEF);
    struct Case {
        std::function<bool()> call;
        std::string line;
    };
    const std::vector<Case> refused = {
        {[&] { return frame.readBig(4, &value); },
         "<E>DATE [ByteArray::readBig,L#] 4 bytes at offset 4 overrun (size 7, capacity 8)"},
        {[&] { return frame.writeLittle<uint16_t>(6, 1); },
         "<E>DATE [ByteArray::writeLittle,L#] 2 bytes at offset 6 overrun (size 7, capacity 8)"},
        {[&] { return frame.appendBig<uint16_t>(1); },
         "<E>DATE [ByteArray::appendBig,L#] 2 bytes at offset 7 overrun (size 7, capacity 8)"},
        {[&] { return frame.append("abc", 3); },
         "<E>DATE [ByteArray::append,L#] 3 bytes at offset 7 overrun (size 7, capacity 8)"},
        {[&] { return frame.at(7) != nullptr; },
         "<E>DATE [ByteArray::at,L#] index 7 out of range (size 7)"},
    };
    for (const Case& c : refused) {
        bool ok = true;
        EXPECT_EQ(linesOf([&] { ok = c.call(); }), std::vector<std::string>{c.line});
        EXPECT_FALSE(ok);
    }
    EXPECT_EQ(frame.size(), 7u);
}

}  // namespace
}  // namespace orvane
