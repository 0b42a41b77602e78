#include <gtest/gtest.h>
#include <orvane/DataBuffer.h>
#include <orvane/StrUtil.h>

#include <algorithm>
#include <stdexcept>

#include "codec/ByteCopy.h"

namespace orvane {
namespace {

// The put/get rules of both buffers against a queue of the unread bytes
// are checked by the buffers fuzz target (fuzz/BuffersFuzz.cpp).

// Refusals return 0, false or null and leave the stored bytes alone.
TEST(DataBuffer, RefusesBadArgumentsAndUseBeforeInit) {
    LineBuffer line, idle;
    RingBuffer ring, idleRing;
    char d[4] = {'a', 'b', 'c', 'd'};
    idle.clear();
    idleRing.clear();
    EXPECT_EQ(idle.putData(d, 4) + idle.getData(d, 4) + idle[0], 0);
    EXPECT_EQ(idleRing.putData(d, 4) + idleRing.getData(d, 4), 0);
    EXPECT_FALSE(idle.init(0) || idleRing.init(-1));
    ASSERT_TRUE(line.init(16) && ring.init(8));
    EXPECT_FALSE(ring.init(16));  // a RingBuffer is sized once
    EXPECT_EQ(line.putData(d, 4) + ring.putData(d, 4), 8);
    EXPECT_EQ(line.getData(nullptr, 4) + ring.putData(nullptr, 4) + line[-1] + line[16], 0);
    EXPECT_EQ(line.size() + ring.size(), 8);
    // A second LineBuffer init replaces the storage and starts empty.
    EXPECT_TRUE(line.init(32) && line.size() == 0);
    // memString sees the NUL inside and stops at the end of the data.
    const char text[] = "abcabd\0ab";
    EXPECT_EQ(StrUtil::memString(text, 8, "\0ab", 3), nullptr);
    EXPECT_EQ(StrUtil::memString(text, 9, "\0ab", 3), text + 6);
}

TEST(LineBuffer, FindsFromTheStorageStartAfterCompactingAndRewinding) {
    LineBuffer buffer;
    char got[8];
    ASSERT_TRUE(buffer.init(8));
    ASSERT_EQ(buffer.putData(const_cast<char*>("ab\r\ncd"), 6) + buffer.getData(got, 4), 10);
    EXPECT_EQ(buffer.find(const_cast<char*>("cd"), 2), 4);
    ASSERT_EQ(buffer.putData(const_cast<char*>("e\r\n"), 3), 3);  // 2 bytes behind: compacts
    EXPECT_EQ(buffer.find(const_cast<char*>("\r\n"), 2), 3);
    ASSERT_EQ(buffer.getData(got, 8) + buffer.putData(const_cast<char*>("K\n"), 2), 7);
    EXPECT_EQ(buffer.find(const_cast<char*>("\n"), 1), 1);  // drained, it rewound
}

// Feeds `input` in chunks of `chunk` bytes, taking every line it can after
// each put, and returns the lines joined with '|' (a '#' where no line came).
std::string takeLines(const std::string& input, size_t chunk, int maxLength, int capacity = 16) {
    LineBuffer buffer;
    if (!buffer.init(capacity)) return "no init";
    std::string out, line = "untouched";
    for (size_t at = 0; at < input.size(); at += chunk) {
        std::string part = input.substr(at, chunk);
        if (buffer.putData(&part[0], static_cast<int>(part.size())) == 0) return out + "full";
        while (buffer.takeLine(&line, '\n', true, maxLength)) out += line + "|";
    }
    return out + (buffer.takeLine(&line, '\n', true, maxLength) ? "" : "#") + "#" +
           std::to_string(buffer.size());
}

TEST(LineBuffer, TakeLineSplitsOnTheTerminatorWhateverTheChunks) {
    struct Row {
        const char* input;
        int maxLength;
        const char* lines;  // lines taken, then "##" and the bytes left unread
    } rows[] = {
        {"ab\ncd\r\n\nx", 0, "ab|cd||##1"},
        {"a\r\r\n", 0, "a\r|##0"},                  // one CR dropped, not two
        {"0123456789\nab", 4, "0123|4567|89|##2"},  // pieces of at most 4
        {"0123\r\n4567\r", 4, "0123|##5"},          // a CR at the limit waits
        {"0123\rX", 4, "0123|##2"},                 // ... until a byte shows it is data
        {"0123\n", 4, "0123|##0"},
    };
    for (const Row& row : rows) {
        for (size_t chunk : {1, 2, 3, 64}) {
            EXPECT_EQ(takeLines(row.input, chunk, row.maxLength), row.lines)
                << row.input << " in chunks of " << chunk;
        }
    }
    // A line longer than the buffer fills it and never completes without a limit.
    EXPECT_EQ(takeLines(std::string(20, 'x'), 4, 0), "full");
    EXPECT_FALSE(LineBuffer().takeLine(nullptr));
}

TEST(Parser, WalksSectionsToTheEndOrAnEmptySectionAndLetsStoiThrow) {
    unsigned int pos = 0, len = 99;
    int value = 0;
    const char* text = "12x, -7,,x,99999999999";
    EXPECT_TRUE(Parser::parseNextInt(text, &pos, ",;", &value) && value == 12);
    EXPECT_TRUE(Parser::parseNextInt(text, &pos, ",", &value) && value == -7 && pos == 8);
    EXPECT_EQ(Parser::parseNextSection(text, &pos, ",", &len), nullptr);
    EXPECT_EQ(len * 10 + pos, 998u);  // both unchanged
    pos = 9;                          // past the empty section
    EXPECT_THROW(Parser::parseNextInt(text, &pos, ",", &value), std::invalid_argument);
    EXPECT_THROW(Parser::parseNextInt(text, &pos, ",", &value), std::out_of_range);
    EXPECT_TRUE(!Parser::parseNextInt(text, &pos, ",", &value) && pos == 22);
}

// Copies above 2 KiB whose destination lies 1-31 bytes ahead of the source
// modulo 4 KiB go in pieces; the bytes must come out the same at every offset.
TEST(DataBuffer, CopiesLargeChunksExactlyAtEveryOffset) {
    std::vector<char> source(3 * 4096), target(3 * 4096);
    for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<char>(i * 7 + i / 251);
    for (uintptr_t ahead = 0; ahead < 4096; ahead = ahead == 40 ? 4095 : ahead + 1) {
        std::fill(target.begin(), target.end(), 0);
        uintptr_t at = (reinterpret_cast<uintptr_t>(source.data()) + ahead -
                        reinterpret_cast<uintptr_t>(target.data())) &
                       4095;
        detail::copyBytes(target.data() + at, source.data(), 5000);
        EXPECT_TRUE(std::equal(source.begin(), source.begin() + 5000, target.begin() + at));
        EXPECT_EQ(target[at + 5000], 0) << ahead;
    }
}

}  // namespace
}  // namespace orvane
