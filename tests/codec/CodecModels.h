#pragma once

// Plain, slow models of the codec's stream cutting and of the buffers, used
// by the unit tests and the fuzz targets to check the real classes against.

#include <orvane/DataBuffer.h>
#include <orvane/StrUtil.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

namespace orvane {
namespace test {

// The stream-cutting rules of AnyPacket::parse applied literally to a string
// that is erased from the front. `events` receives each log line's level
// letter and text ("W dirty data:[11 22 ]").
struct ParseModel {
    std::string buffer;
    std::vector<std::string> events;

    std::vector<std::string> parse(const std::string& data) {
        std::vector<std::string> frames;
        const char mark = '\xA5';
        if (buffer.size() > 8192) {
            events.push_back("E buffer is full(>8192), clear it!");
            buffer.clear();
        }
        buffer += data;
        size_t start = buffer.find(mark);
        if (start == std::string::npos) {
            events.push_back("W dirty data:[" + StrUtil::hexView(buffer) + "]");
            buffer.clear();
            return frames;
        }
        if (start > 0) {
            events.push_back("W dirty data:[" + StrUtil::hexView(buffer.substr(0, start)) + "]");
            buffer.erase(0, start);
        }
        for (;;) {
            if (buffer.empty()) return frames;
            size_t end = buffer.find(mark, start + 1);
            if (end == std::string::npos) return frames;
            size_t len = end - start + 1;
            if (len <= 3) {
                events.push_back("W broken data: [" + StrUtil::hexView(buffer.substr(0, end)) +
                                 "]");
                buffer.erase(0, end);
            } else {
                frames.push_back(buffer.substr(start, len));
                buffer.erase(0, end + 1);
            }
            if (buffer.empty()) return frames;
            start = buffer.find(mark);
            if (start == std::string::npos) {
                events.push_back("E wild data: [" + StrUtil::hexView(buffer) + "]");
                buffer.clear();
                return frames;
            }
        }
    }
};

// Runs the operations coded in `ops` on an initialised buffer and checks
// every result against a queue of the unread bytes. Each operation takes
// three bytes: kind (even put, odd get), then a 16-bit length read as a
// signed value, so negative and zero lengths occur too. `lineRules` selects
// LineBuffer's all-or-nothing put that keeps one byte free; otherwise
// RingBuffer's put that stores what fits. Returns "" or a description of the
// first mismatch.
inline std::string checkBufferOps(DataBuffer& buffer, bool lineRules, const uint8_t* ops,
                                  size_t count) {
    std::deque<char> unread;
    std::vector<char> chunk;
    const int capacity = buffer.capacity();
    unsigned char next = 0;
    for (size_t i = 0; i + 3 <= count; i += 3) {
        int len = static_cast<int16_t>(ops[i + 1] | (ops[i + 2] << 8)) % (2 * capacity + 2);
        bool put = (ops[i] & 1) == 0;
        chunk.assign(len > 0 ? static_cast<size_t>(len) : 1, 0);
        int room = capacity - static_cast<int>(unread.size());
        int expected;
        int got;
        if (put) {
            // Byte values count up, so any loss, repeat or reordering shows;
            // bytes a put refused are offered again by the next one.
            unsigned char value = next;
            for (char& c : chunk) c = static_cast<char>(value++);
            if (lineRules) {
                expected = (len > 0 && room > len) ? len : 0;
            } else {
                expected = len <= 0 ? 0 : (room < len ? room : len);
            }
            got = buffer.putData(chunk.data(), len);
            for (int k = 0; k < got && k < len; ++k)
                unread.push_back(chunk[static_cast<size_t>(k)]);
            if (got > 0) next = static_cast<unsigned char>(next + got);
        } else {
            int have = static_cast<int>(unread.size());
            expected = len <= 0 ? 0 : (have < len ? have : len);
            got = buffer.getData(chunk.data(), len);
            for (int k = 0; k < got && k < have; ++k) {
                if (chunk[static_cast<size_t>(k)] != unread.front()) {
                    return "byte " + std::to_string(k) + " of get " + std::to_string(i / 3) +
                           " is out of order";
                }
                unread.pop_front();
            }
        }
        if (got != expected) {
            return std::string(put ? "put" : "get") + " of " + std::to_string(len) + " returned " +
                   std::to_string(got) + ", expected " + std::to_string(expected);
        }
        if (buffer.size() != static_cast<int>(unread.size()) ||
            buffer.space() != capacity - buffer.size()) {
            return "size " + std::to_string(buffer.size()) + " after operation " +
                   std::to_string(i / 3) + ", expected " + std::to_string(unread.size());
        }
    }
    return std::string();
}

}  // namespace test
}  // namespace orvane
