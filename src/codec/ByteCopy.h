#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvane {
namespace detail {

// memcpy for the buffers' caller-facing copies. On x86 glibc's memcpy is
// 20-30 times slower for copies above about 2 KiB whose destination lies
// 1-31 bytes ahead of the source modulo 4 KiB (its fast-string path stalls
// on 4K aliasing); whether a caller's buffer lands there is luck. Such
// copies go in 2 KiB pieces, which take the vector path at full speed; the
// bytes copied are the same.
inline void copyBytes(char* dst, const char* src, size_t n) {
    constexpr size_t kPiece = 2048;
    uintptr_t ahead = (reinterpret_cast<uintptr_t>(dst) - reinterpret_cast<uintptr_t>(src)) & 4095;
    if (n <= kPiece || ahead == 0 || ahead >= 32) {
        memcpy(dst, src, n);
        return;
    }
    for (size_t done = 0; done < n; done += kPiece) {
        memcpy(dst + done, src + done, n - done < kPiece ? n - done : kPiece);
    }
}

}  // namespace detail
}  // namespace orvane
