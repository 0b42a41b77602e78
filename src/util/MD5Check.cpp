#include <fcntl.h>
#include <orvane/Endian.h>
#include <orvane/MD5Check.h>
#include <orvane/StrUtil.h>
#include <orvane/UniqueFd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "log/LogLine.h"

namespace orvane {

namespace {

constexpr size_t kFileBlock = 64 * 1024;

inline uint32_t rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

// The four rounds of RFC 1321, with the usual cheaper forms of F and G.
#define MD5_STEP(f, a, b, c, d, x, t, s) \
    (a) += f(b, c, d) + (x) + (t);       \
    (a) = rotl(a, s) + (b)
#define MD5_F(b, c, d) ((d) ^ ((b) & ((c) ^ (d))))
#define MD5_G(b, c, d) ((c) ^ ((d) & ((b) ^ (c))))
#define MD5_H(b, c, d) ((b) ^ (c) ^ (d))
#define MD5_I(b, c, d) ((c) ^ ((b) | ~(d)))

}  // namespace

MD5Check::MD5Check() : className("MD5Check") { reset(); }

void MD5Check::reset() {
    state_[0] = 0x67452301;
    state_[1] = 0xefcdab89;
    state_[2] = 0x98badcfe;
    state_[3] = 0x10325476;
    length_ = 0;
}

void MD5Check::transform(const uint8_t* blocks, size_t count) {
    uint32_t a0 = state_[0], b0 = state_[1], c0 = state_[2], d0 = state_[3];
    for (; count > 0; --count, blocks += 64) {
        uint32_t x[16];
        for (int i = 0; i < 16; ++i) x[i] = Endian::readLittle<uint32_t>(blocks + 4 * i);
        uint32_t a = a0, b = b0, c = c0, d = d0;
        MD5_STEP(MD5_F, a, b, c, d, x[0], 0xd76aa478, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[1], 0xe8c7b756, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[2], 0x242070db, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[3], 0xc1bdceee, 22);
        MD5_STEP(MD5_F, a, b, c, d, x[4], 0xf57c0faf, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[5], 0x4787c62a, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[6], 0xa8304613, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[7], 0xfd469501, 22);
        MD5_STEP(MD5_F, a, b, c, d, x[8], 0x698098d8, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[9], 0x8b44f7af, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[10], 0xffff5bb1, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[11], 0x895cd7be, 22);
        MD5_STEP(MD5_F, a, b, c, d, x[12], 0x6b901122, 7);
        MD5_STEP(MD5_F, d, a, b, c, x[13], 0xfd987193, 12);
        MD5_STEP(MD5_F, c, d, a, b, x[14], 0xa679438e, 17);
        MD5_STEP(MD5_F, b, c, d, a, x[15], 0x49b40821, 22);

        MD5_STEP(MD5_G, a, b, c, d, x[1], 0xf61e2562, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[6], 0xc040b340, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[11], 0x265e5a51, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[0], 0xe9b6c7aa, 20);
        MD5_STEP(MD5_G, a, b, c, d, x[5], 0xd62f105d, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[10], 0x02441453, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[15], 0xd8a1e681, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[4], 0xe7d3fbc8, 20);
        MD5_STEP(MD5_G, a, b, c, d, x[9], 0x21e1cde6, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[14], 0xc33707d6, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[3], 0xf4d50d87, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[8], 0x455a14ed, 20);
        MD5_STEP(MD5_G, a, b, c, d, x[13], 0xa9e3e905, 5);
        MD5_STEP(MD5_G, d, a, b, c, x[2], 0xfcefa3f8, 9);
        MD5_STEP(MD5_G, c, d, a, b, x[7], 0x676f02d9, 14);
        MD5_STEP(MD5_G, b, c, d, a, x[12], 0x8d2a4c8a, 20);

        MD5_STEP(MD5_H, a, b, c, d, x[5], 0xfffa3942, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[8], 0x8771f681, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[11], 0x6d9d6122, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[14], 0xfde5380c, 23);
        MD5_STEP(MD5_H, a, b, c, d, x[1], 0xa4beea44, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[4], 0x4bdecfa9, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[7], 0xf6bb4b60, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[10], 0xbebfbc70, 23);
        MD5_STEP(MD5_H, a, b, c, d, x[13], 0x289b7ec6, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[0], 0xeaa127fa, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[3], 0xd4ef3085, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[6], 0x04881d05, 23);
        MD5_STEP(MD5_H, a, b, c, d, x[9], 0xd9d4d039, 4);
        MD5_STEP(MD5_H, d, a, b, c, x[12], 0xe6db99e5, 11);
        MD5_STEP(MD5_H, c, d, a, b, x[15], 0x1fa27cf8, 16);
        MD5_STEP(MD5_H, b, c, d, a, x[2], 0xc4ac5665, 23);

        MD5_STEP(MD5_I, a, b, c, d, x[0], 0xf4292244, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[7], 0x432aff97, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[14], 0xab9423a7, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[5], 0xfc93a039, 21);
        MD5_STEP(MD5_I, a, b, c, d, x[12], 0x655b59c3, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[3], 0x8f0ccc92, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[10], 0xffeff47d, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[1], 0x85845dd1, 21);
        MD5_STEP(MD5_I, a, b, c, d, x[8], 0x6fa87e4f, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[15], 0xfe2ce6e0, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[6], 0xa3014314, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[13], 0x4e0811a1, 21);
        MD5_STEP(MD5_I, a, b, c, d, x[4], 0xf7537e82, 6);
        MD5_STEP(MD5_I, d, a, b, c, x[11], 0xbd3af235, 10);
        MD5_STEP(MD5_I, c, d, a, b, x[2], 0x2ad7d2bb, 15);
        MD5_STEP(MD5_I, b, c, d, a, x[9], 0xeb86d391, 21);

        a0 += a;
        b0 += b;
        c0 += c;
        d0 += d;
    }
    state_[0] = a0;
    state_[1] = b0;
    state_[2] = c0;
    state_[3] = d0;
}

void MD5Check::update(const void* data, size_t len) {
    if (data == nullptr && len > 0) {
        ORVANE_ERROR("null data of %zu bytes", len);
        return;
    }
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    size_t held = static_cast<size_t>(length_ % 64);
    length_ += len;
    if (held > 0) {
        size_t take = len < 64 - held ? len : 64 - held;
        memcpy(pending_ + held, bytes, take);
        bytes += take;
        len -= take;
        if (held + take < 64) return;
        transform(pending_, 1);
    }
    transform(bytes, len / 64);
    if (len % 64 > 0) memcpy(pending_, bytes + len / 64 * 64, len % 64);
}

void MD5Check::update(const std::string& data) { update(data.data(), data.size()); }

bool MD5Check::updateFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        int err = errno;
        ORVANE_ERROR("open %s error: %s", path.c_str(), strerror(err));
        return false;
    }
    std::unique_ptr<uint8_t[]> block(new uint8_t[kFileBlock]);
    for (;;) {
        ssize_t n = ::read(fd.get(), block.get(), kFileBlock);
        if (n < 0) {
            int err = errno;
            if (err == EINTR) continue;
            ORVANE_ERROR("read %s error: %s", path.c_str(), strerror(err));
            return false;
        }
        if (n == 0) return true;
        update(block.get(), static_cast<size_t>(n));
    }
}

MD5Check::Digest MD5Check::finish() {
    uint64_t bits = length_ * 8;
    static const uint8_t padding[64] = {0x80};
    size_t held = static_cast<size_t>(length_ % 64);
    update(padding, held < 56 ? 56 - held : 120 - held);
    uint8_t tail[8];
    Endian::writeLittle<uint64_t>(tail, bits);
    update(tail, 8);
    Digest digest;
    for (int i = 0; i < 4; ++i) Endian::writeLittle<uint32_t>(digest.data() + 4 * i, state_[i]);
    reset();
    return digest;
}

std::string MD5Check::finishHex() { return toHex(finish()); }

MD5Check::Digest MD5Check::digestOf(const void* data, size_t len) {
    MD5Check md5;
    md5.update(data, len);
    return md5.finish();
}

MD5Check::Digest MD5Check::digestOf(const std::string& data) {
    return digestOf(data.data(), data.size());
}

std::string MD5Check::hexOf(const void* data, size_t len) { return toHex(digestOf(data, len)); }

std::string MD5Check::hexOf(const std::string& data) { return toHex(digestOf(data)); }

bool MD5Check::digestFile(const std::string& path, Digest* out) {
    if (out == nullptr) {
        ORVANE_SERROR("null output for %s", path.c_str());
        return false;
    }
    MD5Check md5;
    if (!md5.updateFile(path)) return false;
    *out = md5.finish();
    return true;
}

std::string MD5Check::hexOfFile(const std::string& path) {
    Digest digest;
    return digestFile(path, &digest) ? toHex(digest) : std::string();
}

bool MD5Check::checkFile(const std::string& path, const std::string& expectedHex) {
    Digest expected;
    Digest actual;
    if (!fromHex(expectedHex, &expected) || !digestFile(path, &actual)) return false;
    if (actual == expected) return true;
    ORVANE_SERROR("md5 mismatch for %s: expected %s, got %s", path.c_str(), toHex(expected).c_str(),
                  toHex(actual).c_str());
    return false;
}

std::string MD5Check::toHex(const Digest& digest) {
    return StrUtil::toHex(std::string(digest.begin(), digest.end()));
}

bool MD5Check::fromHex(const std::string& hex, Digest* out) {
    if (out == nullptr) {
        ORVANE_SERROR("null output");
        return false;
    }
    if (hex.size() != 32 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        ORVANE_SERROR("not an md5 digest (32 hex digits): \"%s\"", hex.c_str());
        return false;
    }
    std::string bytes;
    StrUtil::fromHex(hex, &bytes);
    std::copy(bytes.begin(), bytes.end(), out->begin());
    return true;
}

}  // namespace orvane
