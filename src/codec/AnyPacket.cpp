#include <orvane/AnyPacket.h>
#include <orvane/StrUtil.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "log/LogLine.h"

namespace orvane {

namespace {

constexpr unsigned char kMark = 0xA5;
constexpr unsigned char kEscape = 0xA0;
constexpr unsigned char kEscapedMark = 0x05;
constexpr unsigned char kEscapedEscape = 0x0A;
constexpr int kMinFrameBytes = 4;
// Head mark, the body of 1 + 255 + 2 bytes with every byte escaped, tail mark.
constexpr int kMaxFrameBytes = 1 + 2 * (1 + 255 + 2) + 1;
constexpr int kMaxBodyBytes = kMaxFrameBytes - 2;
constexpr size_t kMaxBufferedBytes = 8192;
constexpr unsigned short kCrcInit = 0xFFFF;

// Slicing tables: table[0] is the classic byte-wise table of the reflected
// polynomial 0xA001; table[k][i] is the CRC of byte i followed by k zero
// bytes, so 16 lookups advance the CRC by 16 bytes with the same result as
// 16 byte-wise steps.
constexpr int kSlices = 16;
using CrcTables = std::array<std::array<uint16_t, 256>, kSlices>;

constexpr CrcTables makeCrcTables() {
    CrcTables tables{};
    for (int i = 0; i < 256; ++i) {
        uint16_t crc = static_cast<uint16_t>(i);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : (crc >> 1);
        }
        tables[0][i] = crc;
    }
    for (int k = 1; k < kSlices; ++k) {
        for (int i = 0; i < 256; ++i) {
            uint16_t prev = tables[k - 1][i];
            tables[k][i] = static_cast<uint16_t>((prev >> 8) ^ tables[0][prev & 0xFF]);
        }
    }
    return tables;
}

constexpr CrcTables kCrcTables = makeCrcTables();
static_assert(kCrcTables[0][1] == 0xC0C1 && kCrcTables[0][255] == 0x4040,
              "the byte-wise table must be the standard reflected one");

inline uint16_t crcByte(uint16_t crc, unsigned char byte) {
    return static_cast<uint16_t>(kCrcTables[0][(crc ^ byte) & 0xFF] ^ (crc >> 8));
}

inline uint64_t load64(const unsigned char* p) {
    uint64_t word;
    memcpy(&word, p, sizeof word);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

inline uint16_t crcSlice16(uint16_t crc, const unsigned char* p) {
    uint64_t low = load64(p) ^ crc;
    uint64_t high = load64(p + 8);
    const auto& t = kCrcTables;
    return static_cast<uint16_t>(
        t[15][low & 0xFF] ^ t[14][(low >> 8) & 0xFF] ^ t[13][(low >> 16) & 0xFF] ^
        t[12][(low >> 24) & 0xFF] ^ t[11][(low >> 32) & 0xFF] ^ t[10][(low >> 40) & 0xFF] ^
        t[9][(low >> 48) & 0xFF] ^ t[8][low >> 56] ^ t[7][high & 0xFF] ^ t[6][(high >> 8) & 0xFF] ^
        t[5][(high >> 16) & 0xFF] ^ t[4][(high >> 24) & 0xFF] ^ t[3][(high >> 32) & 0xFF] ^
        t[2][(high >> 40) & 0xFF] ^ t[1][(high >> 48) & 0xFF] ^ t[0][high >> 56]);
}

inline char* putEscaped(char* out, unsigned char byte) {
    if (byte == kMark || byte == kEscape) {
        *out++ = static_cast<char>(kEscape);
        *out++ = static_cast<char>(byte == kMark ? kEscapedMark : kEscapedEscape);
    } else {
        *out++ = static_cast<char>(byte);
    }
    return out;
}

inline const char* findByte(const char* from, const char* end, unsigned char byte) {
    const void* hit = memchr(from, byte, static_cast<size_t>(end - from));
    return hit != nullptr ? static_cast<const char*>(hit) : end;
}

// Escapes `len` bytes into `out` and returns the new end. The runs between
// the bytes that need escaping are found with memchr and copied whole; each
// search result is kept until the copy passes it, so every byte is scanned
// once per searched value.
char* escapeRun(char* out, const char* in, size_t len) {
    const char* end = in + len;
    const char* nextMark = findByte(in, end, kMark);
    const char* nextEscape = findByte(in, end, kEscape);
    for (;;) {
        const char* special = nextMark < nextEscape ? nextMark : nextEscape;
        size_t run = static_cast<size_t>(special - in);
        memcpy(out, in, run);
        out += run;
        if (special == end) return out;
        out = putEscaped(out, static_cast<unsigned char>(*special));
        in = special + 1;
        if (special == nextMark) {
            nextMark = findByte(in, end, kMark);
        } else {
            nextEscape = findByte(in, end, kEscape);
        }
    }
}

// Undoes the escaping of `len` bytes into `out` (room for `len` bytes) and
// returns the number written. An escape byte followed by anything but 05 or
// 0A, or by nothing, stands for itself.
int unescapeRun(char* out, const char* in, size_t len) {
    const char* end = in + len;
    char* begin = out;
    for (;;) {
        const char* escape = findByte(in, end, kEscape);
        size_t run = static_cast<size_t>(escape - in);
        memcpy(out, in, run);
        out += run;
        if (escape == end) break;
        in = escape + 1;
        unsigned char next = in < end ? static_cast<unsigned char>(*in) : 0;
        if (next == kEscapedMark) {
            *out++ = static_cast<char>(kMark);
            ++in;
        } else if (next == kEscapedEscape) {
            *out++ = static_cast<char>(kEscape);
            ++in;
        } else {
            *out++ = static_cast<char>(kEscape);
        }
    }
    return static_cast<int>(out - begin);
}

// CRC of the length byte followed by the payload, as a frame carries it.
inline uint16_t bodyCrc(unsigned char lengthByte, const char* payload, size_t len) {
    return CRCCheck::check16CRC8005(payload, len, crcByte(kCrcInit, lengthByte));
}

}  // namespace

unsigned short CRCCheck::check16CRC8005(const std::string& data, const unsigned short& init) {
    return check16CRC8005(data.data(), data.size(), init);
}

unsigned short CRCCheck::check16CRC8005(const char* data, size_t len, unsigned short init) {
    if (data == nullptr) return init;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(data);
    uint16_t crc = init;
    for (; len >= kSlices; len -= kSlices, p += kSlices) crc = crcSlice16(crc, p);
    for (; len > 0; --len) crc = crcByte(crc, *p++);
    return crc;
}

AnyPacket::Frame::Frame() : className("Frame") {}

std::string AnyPacket::Frame::encode(const std::string& payload) const {
    // Only the low 8 bits of the length travel; see the header.
    unsigned char lengthByte = static_cast<unsigned char>(payload.size() & 0xFF);
    uint16_t crc = bodyCrc(lengthByte, payload.data(), payload.size());
    std::string frame(2 + 2 * (payload.size() + 3), '\0');
    char* out = &frame[0];
    *out++ = static_cast<char>(kMark);
    out = putEscaped(out, lengthByte);
    out = escapeRun(out, payload.data(), payload.size());
    out = putEscaped(out, static_cast<unsigned char>(crc & 0xFF));
    out = putEscaped(out, static_cast<unsigned char>(crc >> 8));
    *out++ = static_cast<char>(kMark);
    frame.resize(static_cast<size_t>(out - frame.data()));
    return frame;
}

std::string AnyPacket::Frame::decode(const std::string& frame) const {
    int n = static_cast<int>(frame.size());
    if (frame.size() < kMinFrameBytes || frame.size() > kMaxFrameBytes) {
        ORVANE_ERROR("packet size error, size: %d", n);
        return std::string();
    }
    if (static_cast<unsigned char>(frame[0]) != kMark ||
        static_cast<unsigned char>(frame[frame.size() - 1]) != kMark) {
        ORVANE_ERROR("packet head error!");
        return std::string();
    }
    char body[kMaxBodyBytes];
    int m = unescapeRun(body, frame.data() + 1, frame.size() - 2);
    // An escape pair can shrink the body to one byte (A5 A0 05 A5): too
    // short to hold even the CRC. Two bytes go on to the CRC check.
    if (m < 2) {
        ORVANE_ERROR("packet size error, size: %d", n);
        return std::string();
    }
    const unsigned char* ubody = reinterpret_cast<const unsigned char*>(body);
    uint16_t calcrc = CRCCheck::check16CRC8005(body, static_cast<size_t>(m - 2), kCrcInit);
    uint16_t pktcrc = static_cast<uint16_t>(ubody[m - 2] + 256 * ubody[m - 1]);
    if (calcrc != pktcrc) {
        ORVANE_ERROR("crc error, calcrc = 0X%04X pktcrc = 0X%04X", calcrc, pktcrc);
        return std::string();
    }
    if (ubody[0] != m - 3) {
        ORVANE_ERROR("payload size error, %d - %d", ubody[0], m - 3);
        return std::string();
    }
    return std::string(body + 1, ubody[0]);
}

AnyPacket::AnyPacket() : className("AnyPacket") {}

// The receive buffer is consumed from `head` forward and compacted once at
// the end of the call, so many frames in one call cost one move, not one per
// frame. Positions below are absolute indexes into `received`; the buffer
// the cutting rules speak of is received[head, size).
std::vector<std::string> AnyPacket::parse(const std::string& data) {
    std::vector<std::string> frames;
    if (received.size() > kMaxBufferedBytes) {
        ORVANE_ERROR("buffer is full(>8192), clear it!");
        received.clear();
    }
    received.append(data);
    const char mark = static_cast<char>(kMark);
    size_t start = received.find(mark);
    if (start == std::string::npos) {
        ORVANE_WARN("dirty data:[%s]", StrUtil::hexView(received).c_str());
        received.clear();
        return frames;
    }
    size_t head = 0;
    if (start > 0) {
        ORVANE_WARN("dirty data:[%s]",
                    StrUtil::hexView(received.data(), static_cast<int>(start)).c_str());
        // The junk is dropped, but the first cut still begins `start` bytes
        // into what remains: a kept quirk of the stream format.
        head = start;
        start += start;
    }
    while (head < received.size()) {
        size_t end = received.find(mark, start + 1);
        if (end == std::string::npos) break;
        if (end - start + 1 <= 3) {
            ORVANE_WARN(
                "broken data: [%s]",
                StrUtil::hexView(received.data() + head, static_cast<int>(end - head)).c_str());
            head = end;
        } else {
            frames.emplace_back(received, start, end - start + 1);
            head = end + 1;
        }
        if (head == received.size()) break;
        start = received.find(mark, head);
        if (start == std::string::npos) {
            ORVANE_ERROR(
                "wild data: [%s]",
                StrUtil::hexView(received.data() + head, static_cast<int>(received.size() - head))
                    .c_str());
            received.clear();
            return frames;
        }
    }
    received.erase(0, head);
    return frames;
}

}  // namespace orvane
