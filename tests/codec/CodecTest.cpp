#include <orvane/AnyPacket.h>
#include <orvane/DataBuffer.h>
#include <orvane/StrUtil.h>

#include <algorithm>
#include <random>
#include <stdexcept>

#include "codec/ByteCopy.h"
#include "support/LogCapture.h"

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
    // A RingBuffer is sized once.
    ASSERT_TRUE(!idle.init(0) && !idleRing.init(-1) && line.init(16) && ring.init(8) &&
                !ring.init(16));
    EXPECT_EQ(line.putData(d, 4) + ring.putData(d, 4), 8);
    EXPECT_EQ(line.getData(nullptr, 4) + ring.putData(nullptr, 4) + line[-1] + line[16], 0);
    EXPECT_EQ(line.size() + ring.size(), 8);
    // A second LineBuffer init replaces the storage and starts empty.
    EXPECT_TRUE(line.init(32) && line.size() == 0);
    // memString sees the NUL inside and stops at the end of the data.
    const char text[] = "abcabd\0ab";
    EXPECT_TRUE(StrUtil::memString(text, 8, "\0ab", 3) == nullptr &&
                StrUtil::memString(text, 9, "\0ab", 3) == text + 6);
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
    // Neither length nor position changes.
    EXPECT_TRUE(Parser::parseNextSection(text, &pos, ",", &len) == nullptr &&
                len * 10 + pos == 998u);
    pos = 9;  // past the empty section
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

using Frames = std::vector<std::string>;

Frames logged(const std::function<void()>& action) {
    return test::LogCapture::get().linesDuring(action);
}

TEST(AnyPacketFrame, EncodesTheReferenceFramesAndRoundTripsEveryPayloadLength) {
    AnyPacket::Frame frame;
    EXPECT_EQ(frame.encode("\x01\x02"), "\xA5\x02\x01\x02\x50\x51\xA5");
    EXPECT_EQ(frame.encode("\xA5"), "\xA5\x01\xA0\x05\xC0\x5B\xA5");
    EXPECT_EQ(frame.encode("\xA0").substr(1, 3), "\x01\xA0\x0A");
    EXPECT_EQ(frame.encode(""), std::string("\xA5\x00\xBF\x40\xA5", 5));
    std::mt19937 rng(42);
    auto lines = logged([&] {
        for (size_t n = 0; n < 4 * 256; ++n) {
            // Payload bytes drawn half the time from the escaped values and their codes.
            std::string payload(n % 256, '\0');
            for (char& c : payload) c = (rng() & 1) ? "\xA5\xA0\x05\x0A"[rng() & 3] : char(rng());
            std::string raw = frame.encode(payload);
            ASSERT_EQ(raw.find('\xA5', 1), raw.size() - 1) << "a mark inside the frame";
            ASSERT_EQ(frame.decode(raw), payload) << n;
            // The sliced CRC against a bit-at-a-time one, from a varying start value.
            unsigned short crc = static_cast<unsigned short>(n * 97);
            for (unsigned char byte : payload) {
                crc ^= byte;
                for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
            }
            ASSERT_EQ(CRCCheck::check16CRC8005(payload, static_cast<unsigned short>(n * 97)), crc);
        }
    });
    EXPECT_EQ(lines, Frames{});
}

TEST(AnyPacketFrame, RefusesEachBadFrameWithOneLineInTheCheckOrder) {
    AnyPacket::Frame frame;
    std::vector<std::pair<std::string, std::string>> cases = {
        {"\x01\x02\x01\x02\x50\x51\xA5", "packet head error!"},
        {std::string("\xA5\x02\x01\x02\x50\x51\x00", 7), "packet head error!"},
        {"\xA5\x05\x01\x02\xE1\x90\xA5", "payload size error, 5 - 2"},
        // Bad CRC and bad length: only the CRC is reported.
        {std::string("\xA5\x05\x01\x02\x00\x00\xA5", 7),
         "crc error, calcrc = 0X90E1 pktcrc = 0X0000"},
        // Over 255 bytes the length travels cut to 8 bits.
        {frame.encode(std::string(256, 'x')), "payload size error, 0 - 256"},
        // 518 bytes, the largest frame, pass the size check.
        {"\xA5" + std::string(516, '\xFF') + "\xA5", "crc error, calcrc = 0XB441 pktcrc = 0XFFFF"},
        // Escapes at the end of the body must not read past it.
        {"\xA5\x01\xA0\xA5", "crc error, calcrc = 0XFFFF pktcrc = 0XA001"},
        {"\xA5\xA0\x05\xA5", "packet size error, size: 4"}};
    for (size_t n = 0; n < 700; n = n == 3 ? 519 : n + 1)
        cases.push_back({std::string(n, '\xA5'), "packet size error, size: " + std::to_string(n)});
    Frames expected;
    for (auto& c : cases) expected.push_back("<E>DATE [Frame::decode,L#] " + c.second);
    EXPECT_EQ(logged([&] {
                  for (auto& c : cases) EXPECT_EQ(frame.decode(c.first), "") << c.second;
              }),
              expected);
}

TEST(AnyPacket, CutsStreamsByTheRulesIncludingTheQuirkAfterLeadingJunk) {
    AnyPacket packet;
    std::string raw = "\xA5\x02\x01\x02\x50\x51\xA5";
    auto lines = logged([&] {
        for (char c : raw.substr(0, 6)) EXPECT_TRUE(packet.parse(std::string(1, c)).empty());
        EXPECT_EQ(packet.parse("\xA5"), Frames{raw});
        EXPECT_EQ(packet.parse(raw + "junk" + raw + raw), Frames(3, raw));  // junk between: silent
        EXPECT_EQ(packet.parse("\xA5\x01" + raw), Frames{raw});  // 3 bytes are broken; A5 stays
        EXPECT_EQ(packet.parse(raw + "\x33\x44"), Frames{raw});
        // An unfinished frame over 8192 bytes is dropped at the next call.
        EXPECT_TRUE(packet.parse("\xA5" + std::string(8192, 'z')).empty());
        EXPECT_EQ(packet.parse(raw), Frames{raw});
        EXPECT_TRUE(packet.parse("no marks").empty());
        // Two junk bytes: the first cut begins two bytes into the frame.
        EXPECT_EQ(packet.parse("\x11\x22" + raw), Frames{raw.substr(2)});
        // Junk longer than the frame: the cut start lies beyond it, so the frame
        // waits for the next mark.
        EXPECT_TRUE(packet.parse(std::string(8, 'j') + raw).empty());
        EXPECT_EQ(packet.parse("\xA5"), Frames{raw});
    });
    EXPECT_EQ(lines,
              (Frames{"<W>DATE [AnyPacket::parse,L#] broken data: [A5 01 ]",
                      "<E>DATE [AnyPacket::parse,L#] wild data: [33 44 ]",
                      "<E>DATE [AnyPacket::parse,L#] buffer is full(>8192), clear it!",
                      "<W>DATE [AnyPacket::parse,L#] dirty data:[6E 6F 20 6D 61 72 6B 73 ]",
                      "<W>DATE [AnyPacket::parse,L#] dirty data:[11 22 ]",
                      "<W>DATE [AnyPacket::parse,L#] dirty data:[6A 6A 6A 6A 6A 6A 6A 6A ]"}));
}

}  // namespace
}  // namespace orvane
