#include <gtest/gtest.h>
#include <orvane/AnyPacket.h>

#include <functional>
#include <random>

#include "support/LogCapture.h"

namespace orvane {
namespace {

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
        {"\xA5\x02\x03\x02\x50\x51\xA5", "crc error, calcrc = 0X3151 pktcrc = 0X5150"},
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
