// Runs the operations coded in the input on a LineBuffer and a RingBuffer of
// a capacity taken from the input, checks them against a queue of the unread
// bytes, and checks LineBuffer::find against the bytes it points at.

#include <orvane/DataBuffer.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "codec/CodecModels.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    int capacity = 1 + ((data[0] | (data[1] << 8)) % 4096);
    int patternLen = data[2] % 8;
    data += 3;
    size -= 3;
    orvane::LineBuffer line;
    orvane::RingBuffer ring;
    if (!line.init(capacity) || !ring.init(capacity)) abort();
    std::string failure = orvane::test::checkBufferOps(line, true, data, size);
    if (failure.empty()) failure = orvane::test::checkBufferOps(ring, false, data, size);
    if (!failure.empty()) {
        fprintf(stderr, "mismatch: %s\n", failure.c_str());
        abort();
    }
    if (size >= static_cast<size_t>(patternLen)) {
        char pattern[8];
        memcpy(pattern, data + size - patternLen, static_cast<size_t>(patternLen));
        int at = line.find(pattern, patternLen);
        if (at >= 0) {
            if (patternLen == 0 || at + patternLen > capacity) abort();
            for (int i = 0; i < patternLen; ++i) {
                if (line[at + i] != pattern[i]) abort();
            }
        }
    }
    return 0;
}
