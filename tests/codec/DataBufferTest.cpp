#include <gtest/gtest.h>
#include <orvane/DataBuffer.h>
#include <orvane/StrUtil.h>

#include <random>
#include <stdexcept>
#include <thread>

#include "codec/ByteCopy.h"
#include "codec/CodecModels.h"

namespace orvane {
namespace {

std::string take(DataBuffer& buffer, int len) {
    std::string out(static_cast<size_t>(len), '\0');
    out.resize(static_cast<size_t>(buffer.getData(&out[0], len)));
    return out;
}

int put(DataBuffer& buffer, std::string data) {
    return buffer.putData(&data[0], static_cast<int>(data.size()));
}

TEST(LineBuffer, KeepsOneByteFreeAndStoresAllOrNothing) {
    LineBuffer buffer;
    ASSERT_TRUE(buffer.init(8));
    EXPECT_EQ(buffer.capacity(), 8);
    EXPECT_EQ(put(buffer, "1234567"), 7);
    EXPECT_EQ(buffer.size(), 7);
    EXPECT_EQ(buffer.space(), 1);
    EXPECT_EQ(put(buffer, "x"), 0);
    EXPECT_EQ(take(buffer, 10), "1234567");
    EXPECT_EQ(put(buffer, "12345678"), 0);
    EXPECT_EQ(buffer.size(), 0);
    EXPECT_EQ(take(buffer, 10), "");
}

TEST(LineBuffer, CompactsWhenTheTailIsShortAndCountsFindFromTheStorageStart) {
    LineBuffer buffer;
    ASSERT_TRUE(buffer.init(8));
    ASSERT_EQ(put(buffer, "ab\r\ncd"), 6);
    EXPECT_EQ(buffer.find(const_cast<char*>("\r\n"), 2), 2);
    EXPECT_EQ(take(buffer, 4), "ab\r\n");
    EXPECT_EQ(buffer.find(const_cast<char*>("cd"), 2), 4);
    ASSERT_EQ(put(buffer, "e\r\n"), 3);  // only 2 bytes behind the data: compacts
    EXPECT_EQ(buffer.find(const_cast<char*>("\r\n"), 2), 3);
    EXPECT_EQ(buffer[0], 'c');
    EXPECT_EQ(buffer[3], '\r');
    EXPECT_EQ(take(buffer, 5), "cde\r\n");
    // Drained: the buffer rewound, so the next record is found from 0 again.
    ASSERT_EQ(put(buffer, "OK\n"), 3);
    EXPECT_EQ(buffer.find(const_cast<char*>("\n"), 1), 2);
    EXPECT_EQ(buffer.find(const_cast<char*>("ERR"), 3), -1);
    EXPECT_EQ(buffer.find(const_cast<char*>("OK\nX"), 4), -1);
    buffer.clear();
    EXPECT_EQ(buffer.size(), 0);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer.find(const_cast<char*>("O"), 1), -1);
}

TEST(LineBuffer, RefusesBadArgumentsAndWorksSafelyBeforeInit) {
    LineBuffer buffer;
    char data[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(buffer.putData(data, 4), 0);
    EXPECT_EQ(buffer.getData(data, 4), 0);
    EXPECT_EQ(buffer.size(), 0);
    EXPECT_EQ(buffer.find(data, 1), -1);
    EXPECT_EQ(buffer[0], '\0');
    buffer.clear();
    EXPECT_FALSE(buffer.init(0));
    EXPECT_FALSE(buffer.init(-5));
    ASSERT_TRUE(buffer.init(16));
    EXPECT_EQ(buffer.putData(nullptr, 4), 0);
    EXPECT_EQ(buffer.putData(data, 0), 0);
    EXPECT_EQ(buffer.putData(data, -1), 0);
    ASSERT_EQ(buffer.putData(data, 4), 4);
    EXPECT_EQ(buffer.getData(nullptr, 4), 0);
    EXPECT_EQ(buffer.getData(data, -4), 0);
    EXPECT_EQ(buffer.find(nullptr, 1), -1);
    EXPECT_EQ(buffer.find(data, 0), -1);
    EXPECT_EQ(buffer.find(data, -1), -1);
    EXPECT_EQ(buffer[-1], '\0');
    EXPECT_EQ(buffer[16], '\0');
    EXPECT_EQ(buffer.size(), 4);
    // A second init replaces the storage and starts empty.
    ASSERT_TRUE(buffer.init(32));
    EXPECT_EQ(buffer.capacity(), 32);
    EXPECT_EQ(buffer.size(), 0);
}

TEST(RingBuffer, StoresWhatFitsAndReturnsItInOrderAcrossTheWrap) {
    RingBuffer buffer;
    ASSERT_TRUE(buffer.init(4));
    EXPECT_EQ(put(buffer, "abc"), 3);
    EXPECT_EQ(put(buffer, "defgh"), 1);
    EXPECT_EQ(buffer.space(), 0);
    EXPECT_EQ(take(buffer, 10), "abcd");
    // That write ended exactly at the capacity: the next one starts at 0.
    EXPECT_EQ(put(buffer, "xy"), 2);
    EXPECT_EQ(take(buffer, 1), "x");
    EXPECT_EQ(put(buffer, "123"), 3);  // wraps: 2 bytes to the end, 1 to the start
    EXPECT_EQ(buffer.size(), 4);
    EXPECT_EQ(take(buffer, 3), "y12");
    EXPECT_EQ(take(buffer, 3), "3");
    EXPECT_EQ(put(buffer, "pq"), 2);
    buffer.clear();
    EXPECT_EQ(buffer.capacity(), 4);
    EXPECT_EQ(buffer.size(), 0);
    EXPECT_EQ(take(buffer, 4), "");
}

TEST(RingBuffer, RefusesBadArgumentsASecondInitAndUseBeforeInit) {
    RingBuffer buffer;
    char data[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(buffer.putData(data, 4), 0);
    EXPECT_EQ(buffer.getData(data, 4), 0);
    buffer.clear();
    EXPECT_FALSE(buffer.init(0));
    EXPECT_FALSE(buffer.init(-1));
    ASSERT_TRUE(buffer.init(8));
    EXPECT_FALSE(buffer.init(16));
    EXPECT_EQ(buffer.capacity(), 8);
    EXPECT_EQ(buffer.putData(nullptr, 4), 0);
    EXPECT_EQ(buffer.putData(data, 0), 0);
    EXPECT_EQ(buffer.putData(data, -3), 0);
    ASSERT_EQ(buffer.putData(data, 4), 4);
    EXPECT_EQ(buffer.getData(nullptr, 4), 0);
    EXPECT_EQ(buffer.getData(data, 0), 0);
    EXPECT_EQ(buffer.getData(data, -3), 0);
    EXPECT_EQ(buffer.size(), 4);
}

TEST(DataBuffer, RandomOperationsMatchAQueueOfTheUnreadBytes) {
    std::mt19937 rng(99);
    for (int capacity : {1, 2, 7, 64, 300}) {
        std::vector<uint8_t> ops(3000);
        for (auto& op : ops) op = static_cast<uint8_t>(rng());
        LineBuffer line;
        RingBuffer ring;
        ASSERT_TRUE(line.init(capacity));
        ASSERT_TRUE(ring.init(capacity));
        EXPECT_EQ(test::checkBufferOps(line, true, ops.data(), ops.size()), "") << capacity;
        EXPECT_EQ(test::checkBufferOps(ring, false, ops.data(), ops.size()), "") << capacity;
    }
}

// One producer and one consumer stream 1 MB through each buffer.
TEST(DataBuffer, CarriesAByteStreamIntactBetweenTwoThreads) {
    LineBuffer line;
    RingBuffer ring;
    ASSERT_TRUE(line.init(1000));
    ASSERT_TRUE(ring.init(1000));
    for (DataBuffer* buffer : {static_cast<DataBuffer*>(&line), static_cast<DataBuffer*>(&ring)}) {
        const int total = 1 << 20;
        std::thread producer([buffer] {
            char chunk[300];
            for (int sent = 0; sent < total;) {
                int len = std::min(static_cast<int>(sizeof chunk) - sent % 7, total - sent);
                for (int i = 0; i < len; ++i) chunk[i] = static_cast<char>((sent + i) % 251);
                int n = buffer->putData(chunk, len);
                if (n == 0) std::this_thread::yield();
                sent += n;
            }
        });
        int received = 0;
        bool inOrder = true;
        char chunk[257];
        while (received < total) {
            int n = buffer->getData(chunk, sizeof chunk);
            if (n == 0) std::this_thread::yield();
            for (int i = 0; i < n; ++i)
                inOrder &= chunk[i] == static_cast<char>((received + i) % 251);
            received += n;
        }
        producer.join();
        EXPECT_TRUE(inOrder);
        EXPECT_EQ(buffer->size(), 0);
    }
}

// Large copies whose destination lies a few bytes ahead of the source
// modulo 4 KiB go in pieces; the bytes must come out the same at every offset.
TEST(DataBuffer, CopiesLargeChunksExactlyAtEveryBufferOffset) {
    std::vector<char> source(3 * 4096);
    for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<char>(i * 7 + i / 251);
    std::vector<char> target(3 * 4096);
    for (size_t ahead : {0, 1, 16, 31, 32, 4095}) {
        std::fill(target.begin(), target.end(), 0);
        size_t at = (reinterpret_cast<uintptr_t>(source.data()) + ahead -
                     reinterpret_cast<uintptr_t>(target.data())) &
                    4095;
        detail::copyBytes(target.data() + at, source.data(), 5000);
        EXPECT_TRUE(std::equal(source.begin(), source.begin() + 5000, target.begin() + at));
        EXPECT_EQ(target[at + 5000], 0) << ahead;
    }
    RingBuffer ring;
    LineBuffer line;
    ASSERT_TRUE(ring.init(8192));
    ASSERT_TRUE(line.init(8192));
    for (size_t offset = 0; offset < 48; offset += 3) {
        for (DataBuffer* buffer :
             {static_cast<DataBuffer*>(&ring), static_cast<DataBuffer*>(&line)}) {
            ASSERT_EQ(buffer->putData(source.data() + offset, 5000), 5000);
            ASSERT_EQ(buffer->getData(target.data() + offset, 5000), 5000);
            EXPECT_TRUE(std::equal(source.begin() + offset, source.begin() + offset + 5000,
                                   target.begin() + offset))
                << offset;
        }
    }
}

TEST(StrUtil, MemStringFindsTheFirstWholeOccurrenceWithinTheData) {
    const char data[] = "abcabd\0ab";
    const int len = sizeof data - 1;  // 9 bytes, one NUL inside
    EXPECT_EQ(StrUtil::memString(data, len, "abd", 3), data + 3);
    EXPECT_EQ(StrUtil::memString(data, len, "\0ab", 3), data + 6);
    EXPECT_EQ(StrUtil::memString(data, len, "b", 1), data + 1);
    EXPECT_EQ(StrUtil::memString(data, len, "abx", 3), nullptr);
    EXPECT_EQ(StrUtil::memString(data, len, "abc", 3), data);
    // The last candidate runs past the end of the searched bytes.
    EXPECT_EQ(StrUtil::memString(data, len, "abq", 3), nullptr);
    EXPECT_EQ(StrUtil::memString(data, 8, "\0ab", 3), nullptr);
    EXPECT_EQ(StrUtil::memString(data, 2, "abc", 3), nullptr);
    EXPECT_EQ(StrUtil::memString(nullptr, 3, "a", 1), nullptr);
    EXPECT_EQ(StrUtil::memString(data, -1, "a", 1), nullptr);
    EXPECT_EQ(StrUtil::memString(data, len, nullptr, 1), nullptr);
    EXPECT_EQ(StrUtil::memString(data, len, "a", 0), nullptr);
}

TEST(Parser, WalksSectionsUntilTheEndOrAnEmptySection) {
    unsigned int pos = 0;
    unsigned int len = 99;
    const char* text = "a,b";
    EXPECT_EQ(Parser::parseNextSection(text, &pos, ",", &len), text);
    EXPECT_EQ(len, 1u);
    EXPECT_EQ(pos, 2u);
    EXPECT_EQ(Parser::parseNextSection(text, &pos, ",;", &len), text + 2);
    EXPECT_EQ(len, 1u);
    EXPECT_EQ(pos, 3u);
    EXPECT_EQ(Parser::parseNextSection(text, &pos, ",", &len), nullptr);
    EXPECT_EQ(pos, 3u);

    pos = 0;
    std::string out = "unchanged";
    EXPECT_TRUE(Parser().parseNextString("a,,b", &pos, ",", &out));
    EXPECT_EQ(out, "a");
    EXPECT_FALSE(Parser::parseNextString("a,,b", &pos, ",", &out));
    EXPECT_EQ(out, "a");
    EXPECT_EQ(pos, 2u);

    // An empty separator string: the whole text is one section.
    pos = 0;
    EXPECT_TRUE(Parser::parseNextString("x,y", &pos, "", &out));
    EXPECT_EQ(out, "x,y");
    EXPECT_EQ(pos, 3u);
    EXPECT_FALSE(Parser::parseNextString("x,y", &pos, "", &out));

    EXPECT_EQ(Parser::parseNextSection(nullptr, &pos, ",", &len), nullptr);
    EXPECT_EQ(Parser::parseNextSection(text, nullptr, ",", &len), nullptr);
    EXPECT_EQ(Parser::parseNextSection(text, &pos, nullptr, &len), nullptr);
    EXPECT_EQ(Parser::parseNextSection(text, &pos, ",", nullptr), nullptr);
    EXPECT_FALSE(Parser::parseNextString(text, &pos, ",", nullptr));
    EXPECT_FALSE(Parser::parseNextInt(text, &pos, ",", nullptr));
}

TEST(Parser, ConvertsSectionsWithStoiAndLetsItsExceptionsThrough) {
    unsigned int pos = 0;
    int value = -1;
    const char* text = "12x, -7,x,99999999999";
    EXPECT_TRUE(Parser::parseNextInt(text, &pos, ",", &value));
    EXPECT_EQ(value, 12);
    EXPECT_TRUE(Parser::parseNextInt(text, &pos, ",", &value));
    EXPECT_EQ(value, -7);
    EXPECT_THROW(Parser::parseNextInt(text, &pos, ",", &value), std::invalid_argument);
    EXPECT_THROW(Parser::parseNextInt(text, &pos, ",", &value), std::out_of_range);
    EXPECT_EQ(value, -7);
    EXPECT_FALSE(Parser::parseNextInt(text, &pos, ",", &value));
}

}  // namespace
}  // namespace orvane
