#pragma once

// Plain, slow models of the codec's stream cutting (for the fuzz targets) and
// of the buffers (for the unit tests and the fuzz targets) to check the real
// classes against.

#include <orvane/DataBuffer.h>
#include <orvane/StrUtil.h>

#include <algorithm>
#include <deque>

namespace orvane {
namespace test {

// The stream-cutting rules of AnyPacket::parse applied literally to a string
// that is erased from the front. `events` receives each log line's level
// letter and text ("W dirty data:[11 22 ]").
struct ParseModel {
    std::string buffer;
    std::vector<std::string> events;

    // Logs the first `n` buffered bytes after `what` and drops them.
    void drop(const std::string& what, size_t n) {
        events.push_back(what + StrUtil::hexView(buffer.substr(0, n)) + "]");
        buffer.erase(0, n);
    }

    std::vector<std::string> parse(const std::string& data) {
        std::vector<std::string> frames;
        if (buffer.size() > 8192) {
            events.push_back("E buffer is full(>8192), clear it!");
            buffer.clear();
        }
        buffer += data;
        // Junk before the first mark is dropped, all of it without a mark;
        // `start` is deliberately not rewound after.
        size_t start = buffer.find('\xA5');
        if (start != 0) drop("W dirty data:[", std::min(start, buffer.size()));
        while (!buffer.empty()) {
            size_t end = buffer.find('\xA5', start + 1);
            if (end == std::string::npos) break;
            if (end - start + 1 <= 3) {
                drop("W broken data: [", end);
            } else {
                frames.push_back(buffer.substr(start, end - start + 1));
                buffer.erase(0, end + 1);
            }
            start = buffer.find('\xA5');
            if (start == buffer.npos && !buffer.empty()) drop("E wild data: [", buffer.size());
        }
        return frames;
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
        int have = static_cast<int>(unread.size());
        int expected = std::min(std::max(len, 0), put ? capacity - have : have);
        if (put && lineRules && capacity - have <= len) expected = 0;
        // Put bytes count up, so any loss, repeat or reordering shows; bytes
        // a put refused are offered again by the next one.
        chunk.resize(static_cast<size_t>(std::max(len, 1)));
        for (size_t k = 0; k < chunk.size(); ++k) chunk[k] = static_cast<char>(next + k);
        int got = put ? buffer.putData(chunk.data(), len) : buffer.getData(chunk.data(), len);
        int n = std::max(0, std::min(got, expected));
        if (put) unread.insert(unread.end(), chunk.begin(), chunk.begin() + n);
        bool ordered = put || std::equal(chunk.begin(), chunk.begin() + n, unread.begin());
        if (!put) unread.erase(unread.begin(), unread.begin() + n);
        if (put) next = static_cast<unsigned char>(next + n);
        if (!ordered || got != expected || buffer.size() != static_cast<int>(unread.size()) ||
            buffer.space() != capacity - buffer.size()) {
            return "operation " + std::to_string(i / 3) + " returned " + std::to_string(got);
        }
    }
    return std::string();
}

}  // namespace test
}  // namespace orvane
