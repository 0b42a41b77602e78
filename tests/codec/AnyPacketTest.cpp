#include <gtest/gtest.h>
#include <orvane/AnyPacket.h>
#include <orvane/StrUtil.h>

#include <initializer_list>
#include <random>

#include "codec/CodecModels.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) out.push_back(static_cast<char>(v));
    return out;
}

// Starts a clean capture: lines() then returns the lines logged since, in
// order and normalised. Sentinel lines logged on both sides keep out lines of
// earlier tests that were still queued and show that nothing else came.
class LogLines {
  public:
    LogLines() {
        auto& capture = test::LogCapture::get();
        capture.clear();
        AnyPacket::Frame().decode(std::string(4322, 's'));
        EXPECT_TRUE(capture.waitFor("packet size error, size: 4322"));
        capture.clear();
    }

    std::vector<std::string> lines() {
        AnyPacket::Frame().decode(std::string(4321, 's'));
        auto& capture = test::LogCapture::get();
        EXPECT_TRUE(capture.waitFor("packet size error, size: 4321"));
        std::vector<std::string> out;
        for (auto& line : capture.lines()) {
            if (line.second.find("packet size error, size: 4321") != std::string::npos) break;
            out.push_back(test::LogCapture::normalise(line.second));
        }
        return out;
    }
};

// Payload bytes drawn mostly from the two escaped values and their codes.
std::string randomPayload(std::mt19937& rng, size_t len) {
    static const unsigned char pool[] = {0xA5, 0xA0, 0x05, 0x0A, 0x00, 0xFF};
    std::string out(len, '\0');
    for (char& c : out) {
        unsigned int r = rng();
        c = static_cast<char>((r & 1) ? pool[(r >> 1) % sizeof pool] : (r >> 8) & 0xFF);
    }
    return out;
}

// A bit-at-a-time CRC to hold the table-driven one to.
unsigned short bitwiseCrc(const std::string& data, unsigned short crc) {
    for (unsigned char byte : data) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
    }
    return crc;
}

TEST(CRCCheck, MatchesTheModbusCheckValueAndABitwiseCrcAtEveryLength) {
    EXPECT_EQ(CRCCheck::check16CRC8005("123456789", 0xFFFF), 0x4B37);
    EXPECT_EQ(CRCCheck::check16CRC8005("", 0x1234), 0x1234);
    EXPECT_EQ(CRCCheck::check16CRC8005(nullptr, 10, 0xBEEF), 0xBEEF);
    std::mt19937 rng(7);
    for (size_t len = 0; len < 300; ++len) {
        std::string data = randomPayload(rng, len);
        unsigned short init = static_cast<unsigned short>(rng());
        ASSERT_EQ(CRCCheck::check16CRC8005(data, init), bitwiseCrc(data, init)) << len;
        // Chained over two pieces it equals the CRC of the whole.
        size_t cut = len / 3;
        unsigned short first = CRCCheck::check16CRC8005(data.substr(0, cut), init);
        ASSERT_EQ(CRCCheck::check16CRC8005(data.substr(cut), first), bitwiseCrc(data, init));
    }
}

TEST(AnyPacketFrame, EncodesTheReferenceFramesToTheByte) {
    AnyPacket::Frame frame;
    EXPECT_EQ(frame.encode(bytes({0x01, 0x02})), bytes({0xA5, 0x02, 0x01, 0x02, 0x50, 0x51, 0xA5}));
    EXPECT_EQ(frame.encode(bytes({0xA5})), bytes({0xA5, 0x01, 0xA0, 0x05, 0xC0, 0x5B, 0xA5}));
    EXPECT_EQ(frame.encode(bytes({0xA0})).substr(1, 3), bytes({0x01, 0xA0, 0x0A}));

    LogLines log;
    EXPECT_EQ(frame.encode(""), bytes({0xA5, 0x00, 0xBF, 0x40, 0xA5}));
    EXPECT_EQ(frame.decode(bytes({0xA5, 0x00, 0xBF, 0x40, 0xA5})), "");
    EXPECT_TRUE(log.lines().empty()) << "an empty payload is no error";
}

TEST(AnyPacketFrame, RoundTripsEveryPayloadLengthWithMarksOnlyAtTheEnds) {
    AnyPacket::Frame frame;
    std::mt19937 rng(42);
    for (int round = 0; round < 4; ++round) {
        for (size_t len = 0; len <= 255; ++len) {
            std::string payload = randomPayload(rng, len);
            std::string raw = frame.encode(payload);
            ASSERT_GE(raw.size(), 5u);
            ASSERT_LE(raw.size(), 518u);
            ASSERT_EQ(raw.find('\xA5', 1), raw.size() - 1) << "a mark inside the frame";
            ASSERT_EQ(frame.decode(raw), payload) << len;
        }
    }
    std::string largest = frame.encode(std::string(255, '\xA5'));
    EXPECT_EQ(largest.size(), 515u);  // marks, length, 255 escaped pairs, CRC
    EXPECT_EQ(frame.decode(largest), std::string(255, '\xA5'));
}

TEST(AnyPacketFrame, ReportsEachDecodeErrorOnceInTheCheckOrder) {
    AnyPacket::Frame frame;
    LogLines log;
    std::string valid = frame.encode(bytes({0x01, 0x02}));
    std::string changed = valid;
    changed[2] = 0x03;
    EXPECT_EQ(frame.decode(std::string(3, '\xA5')), "");
    EXPECT_EQ(frame.decode(std::string(519, '\xA5')), "");
    EXPECT_EQ(frame.decode(bytes({0x01, 0x02, 0x01, 0x02, 0x50, 0x51, 0xA5})), "");
    EXPECT_EQ(frame.decode(bytes({0xA5, 0x02, 0x01, 0x02, 0x50, 0x51, 0x00})), "");
    EXPECT_EQ(frame.decode(changed), "");
    // Length 5 over two payload bytes, with a CRC that fits.
    EXPECT_EQ(frame.decode(bytes({0xA5, 0x05, 0x01, 0x02, 0xE1, 0x90, 0xA5})), "");
    // Bad CRC and bad length: only the CRC is reported.
    EXPECT_EQ(frame.decode(bytes({0xA5, 0x05, 0x01, 0x02, 0x00, 0x00, 0xA5})), "");
    // A payload above 255 bytes travels with its length cut to 8 bits.
    EXPECT_EQ(frame.decode(frame.encode(std::string(256, 'x'))), "");
    // 518 bytes pass the size check.
    std::string longest = '\xA5' + std::string(516, '\0') + '\xA5';
    EXPECT_EQ(frame.decode(longest), "");
    unsigned short zerosCrc = CRCCheck::check16CRC8005(std::string(514, '\0'), 0xFFFF);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<E>DATE [Frame::decode,L#] packet size error, size: 3",
                  "<E>DATE [Frame::decode,L#] packet size error, size: 519",
                  "<E>DATE [Frame::decode,L#] packet head error!",
                  "<E>DATE [Frame::decode,L#] packet head error!",
                  "<E>DATE [Frame::decode,L#] crc error, calcrc = 0X3151 pktcrc = 0X5150",
                  "<E>DATE [Frame::decode,L#] payload size error, 5 - 2",
                  "<E>DATE [Frame::decode,L#] crc error, calcrc = 0X90E1 pktcrc = 0X0000",
                  "<E>DATE [Frame::decode,L#] payload size error, 0 - 256",
                  StrUtil::format("<E>DATE [Frame::decode,L#] crc error, calcrc = 0X%04X "
                                  "pktcrc = 0X0000",
                                  zerosCrc),
              }));
}

TEST(AnyPacketFrame, RefusesEveryFrameSizeOutsideFourTo518Bytes) {
    AnyPacket::Frame frame;
    LogLines log;
    std::vector<std::string> expected;
    for (size_t n = 0; n < 700; ++n) {
        if (n == 4) n = 519;
        ASSERT_EQ(frame.decode(std::string(n, '\xA5')), "");
        expected.push_back(StrUtil::format("<E>DATE [Frame::decode,L#] packet size error, size: %d",
                                           static_cast<int>(n)));
    }
    EXPECT_EQ(log.lines(), expected);
}

TEST(AnyPacketFrame, DecodesShortAndOddlyEscapedBodiesWithinTheFrame) {
    AnyPacket::Frame frame;
    LogLines log;
    // An escape byte followed by another byte stands for itself.
    EXPECT_EQ(frame.decode(bytes({0xA5, 0x02, 0xA0, 0x41, 0x68, 0x30, 0xA5})), bytes({0xA0, 0x41}));
    // Four-byte frames pass the size check and fail on their CRC or length.
    EXPECT_EQ(frame.decode(bytes({0xA5, 0x01, 0x02, 0xA5})), "");
    EXPECT_EQ(frame.decode(bytes({0xA5, 0xFF, 0xFF, 0xA5})), "");
    // An escape byte before the tail mark is kept; the mark is not consumed.
    EXPECT_EQ(frame.decode(bytes({0xA5, 0x01, 0xA0, 0xA5})), "");
    // One escaped pair leaves a one-byte body: too short to hold a packet.
    EXPECT_EQ(frame.decode(bytes({0xA5, 0xA0, 0x05, 0xA5})), "");
    EXPECT_EQ(frame.decode(bytes({0xA5, 0xA0, 0x0A, 0xA5})), "");
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<E>DATE [Frame::decode,L#] crc error, calcrc = 0XFFFF pktcrc = 0X0201",
                  "<E>DATE [Frame::decode,L#] payload size error, 255 - -1",
                  "<E>DATE [Frame::decode,L#] crc error, calcrc = 0XFFFF pktcrc = 0XA001",
                  "<E>DATE [Frame::decode,L#] packet size error, size: 4",
                  "<E>DATE [Frame::decode,L#] packet size error, size: 4",
              }));
}

TEST(AnyPacket, CompletesAFrameFedOneByteAtATime) {
    AnyPacket packet;
    std::string raw = AnyPacket::Frame().encode(bytes({0xA5, 0xA0, 0x10}));
    LogLines log;
    for (size_t i = 0; i + 1 < raw.size(); ++i) {
        ASSERT_TRUE(packet.parse(raw.substr(i, 1)).empty()) << i;
    }
    EXPECT_EQ(packet.parse(raw.substr(raw.size() - 1)), std::vector<std::string>{raw});
    EXPECT_TRUE(log.lines().empty());
}

TEST(AnyPacket, CutsManyFramesInOrderAndDropsJunkBetweenThemSilently) {
    AnyPacket packet;
    AnyPacket::Frame frame;
    std::vector<std::string> sent;
    std::string stream;
    for (int i = 0; i < 200; ++i) {
        sent.push_back(frame.encode(std::string(static_cast<size_t>(i), static_cast<char>(i))));
        if (i % 3 == 1) stream += "junk";
        stream += sent.back();
    }
    LogLines log;
    EXPECT_EQ(packet.parse(stream), sent);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(frame.decode(sent[199]), std::string(199, static_cast<char>(199)));
}

TEST(AnyPacket, DropsDataWithoutMarksAndKeepsTheQuirkAfterLeadingJunk) {
    AnyPacket packet;
    AnyPacket::Frame frame;
    std::string raw = bytes({0xA5, 0x02, 0x01, 0x02, 0x50, 0x51, 0xA5});
    LogLines log;
    EXPECT_TRUE(packet.parse("no marks").empty());
    // The buffer was emptied: a clean frame now comes back whole.
    EXPECT_EQ(packet.parse(raw), std::vector<std::string>{raw});
    // Two junk bytes: the first cut begins two bytes into the frame.
    std::vector<std::string> cut = packet.parse(bytes({0x11, 0x22}) + raw);
    EXPECT_EQ(cut, std::vector<std::string>{bytes({0x01, 0x02, 0x50, 0x51, 0xA5})});
    EXPECT_EQ(frame.decode(cut[0]), "");
    EXPECT_EQ(packet.parse(raw), std::vector<std::string>{raw});
    // Junk longer than the frame: the cut start lies beyond the frame, which
    // waits in the buffer and is completed by the next mark.
    EXPECT_TRUE(packet.parse(std::string(8, 'j') + raw).empty());
    EXPECT_EQ(packet.parse(bytes({0xA5})), std::vector<std::string>{raw});
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "<W>DATE [AnyPacket::parse,L#] dirty data:[6E 6F 20 6D 61 72 6B 73 ]",
                  "<W>DATE [AnyPacket::parse,L#] dirty data:[11 22 ]",
                  "<E>DATE [Frame::decode,L#] packet head error!",
                  "<W>DATE [AnyPacket::parse,L#] dirty data:[6A 6A 6A 6A 6A 6A 6A 6A ]",
              }));
}

TEST(AnyPacket, ReportsBrokenWildAndOverflowingData) {
    AnyPacket packet;
    std::string raw = bytes({0xA5, 0x02, 0x01, 0x02, 0x50, 0x51, 0xA5});
    LogLines log;
    EXPECT_TRUE(packet.parse(bytes({0xA5, 0xA5})).empty());
    // The second mark stayed: it opens the rest of the frame.
    EXPECT_EQ(packet.parse(raw.substr(1)), std::vector<std::string>{raw});
    EXPECT_EQ(packet.parse(raw + bytes({0x33, 0x44})), std::vector<std::string>{raw});
    // An unfinished frame of 8193 bytes is dropped at the next call, which
    // then parses its own data.
    EXPECT_TRUE(packet.parse(bytes({0xA5}) + std::string(8192, 'z')).empty());
    EXPECT_EQ(packet.parse(raw), std::vector<std::string>{raw});
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "<W>DATE [AnyPacket::parse,L#] broken data: [A5 ]",
                               "<E>DATE [AnyPacket::parse,L#] wild data: [33 44 ]",
                               "<E>DATE [AnyPacket::parse,L#] buffer is full(>8192), clear it!",
                           }));
}

TEST(AnyPacket, CutsRandomStreamsInRandomPiecesLikeThePlainModel) {
    std::mt19937 rng(1234);
    AnyPacket::Frame frame;
    for (int round = 0; round < 200; ++round) {
        std::string stream;
        while (stream.size() < 2000) {
            unsigned int kind = rng() % 8;
            if (kind < 5) {
                stream += frame.encode(randomPayload(rng, rng() % 40));
            } else if (kind < 7) {
                stream += randomPayload(rng, rng() % 6);
            } else {
                stream += std::string(rng() % 3 + 1, '\xA5');
            }
        }
        AnyPacket packet;
        test::ParseModel model;
        for (size_t at = 0; at < stream.size();) {
            size_t piece = rng() % 64;
            std::string data = stream.substr(at, piece);
            at += piece;
            ASSERT_EQ(packet.parse(data), model.parse(data)) << "round " << round << " at " << at;
        }
    }
}

}  // namespace
}  // namespace orvane
