// MD5Check, Base64 and Endian against plain baselines in the same run:
// a compact reference MD5 (the loop form with its constants computed, as
// textbooks write it), a naive Base64 (one character at a time with
// strchr), and memcpy + __builtin_bswap for the Endian readers.
//     build/bench/orvane_bench_util --benchmark_repetitions=5
//     --benchmark_report_aggregates_only=true

#include <benchmark/benchmark.h>
#include <orvane/Base64.h>
#include <orvane/Endian.h>
#include <orvane/MD5Check.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

namespace {

constexpr size_t kBlock = 64 * 1024;

std::string randomBytes(size_t size) {
    std::mt19937 engine(42);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(engine() & 0xFF);
    return bytes;
}

// The reference MD5: one loop of 64 steps, the constants from sin() at start-up.
class ReferenceMd5 {
  public:
    ReferenceMd5() {
        for (int i = 0; i < 64; ++i) {
            k_[i] = static_cast<uint32_t>(std::floor(std::fabs(std::sin(i + 1.0)) * 4294967296.0));
        }
    }
    void digest(const uint8_t* data, size_t len, uint8_t out[16]) const {
        uint32_t h[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
        std::string tail(reinterpret_cast<const char*>(data + len / 64 * 64), len % 64);
        tail += '\x80';
        while (tail.size() % 64 != 56) tail += '\0';
        uint64_t bits = static_cast<uint64_t>(len) * 8;
        for (int i = 0; i < 8; ++i) tail += static_cast<char>(bits >> (8 * i));
        blocks(h, data, len / 64);
        blocks(h, reinterpret_cast<const uint8_t*>(tail.data()), tail.size() / 64);
        for (int i = 0; i < 4; ++i) {
            for (int b = 0; b < 4; ++b) out[4 * i + b] = static_cast<uint8_t>(h[i] >> (8 * b));
        }
    }

  private:
    void blocks(uint32_t h[4], const uint8_t* p, size_t count) const {
        static const int shifts[4][4] = {
            {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
        for (; count > 0; --count, p += 64) {
            uint32_t m[16];
            for (int i = 0; i < 16; ++i) {
                m[i] = uint32_t(p[4 * i]) | uint32_t(p[4 * i + 1]) << 8 |
                       uint32_t(p[4 * i + 2]) << 16 | uint32_t(p[4 * i + 3]) << 24;
            }
            uint32_t a = h[0], b = h[1], c = h[2], d = h[3];
            for (int i = 0; i < 64; ++i) {
                uint32_t f;
                int g;
                if (i < 16) {
                    f = (b & c) | (~b & d);
                    g = i;
                } else if (i < 32) {
                    f = (d & b) | (~d & c);
                    g = (5 * i + 1) % 16;
                } else if (i < 48) {
                    f = b ^ c ^ d;
                    g = (3 * i + 5) % 16;
                } else {
                    f = c ^ (b | ~d);
                    g = (7 * i) % 16;
                }
                uint32_t next = a + f + k_[i] + m[g];
                int s = shifts[i / 16][i % 4];
                a = d;
                d = c;
                c = b;
                b += (next << s) | (next >> (32 - s));
            }
            h[0] += a;
            h[1] += b;
            h[2] += c;
            h[3] += d;
        }
    }
    uint32_t k_[64];
};

std::string md5Library(const std::string& data) {
    orvane::MD5Check::Digest digest = orvane::MD5Check::digestOf(data);
    return std::string(digest.begin(), digest.end());
}

std::string md5Reference(const std::string& data) {
    static const ReferenceMd5 md5;
    uint8_t out[16];
    md5.digest(reinterpret_cast<const uint8_t*>(data.data()), data.size(), out);
    return std::string(reinterpret_cast<const char*>(out), sizeof out);
}

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Naive Base64: a string grown one character at a time, strchr to decode.
std::string naiveEncode(const std::string& in) {
    std::string out;
    size_t i = 0;
    for (; i + 2 < in.size(); i += 3) {
        uint32_t v =
            uint32_t(uint8_t(in[i])) << 16 | uint32_t(uint8_t(in[i + 1])) << 8 | uint8_t(in[i + 2]);
        for (int s = 18; s >= 0; s -= 6) out.push_back(kAlphabet[(v >> s) & 63]);
    }
    if (i < in.size()) {
        uint32_t v = uint32_t(uint8_t(in[i])) << 16;
        if (i + 1 < in.size()) v |= uint32_t(uint8_t(in[i + 1])) << 8;
        out.push_back(kAlphabet[v >> 18]);
        out.push_back(kAlphabet[(v >> 12) & 63]);
        out.push_back(i + 1 < in.size() ? kAlphabet[(v >> 6) & 63] : '=');
        out.push_back('=');
    }
    return out;
}

std::string naiveDecode(const std::string& in) {
    std::string out;
    uint32_t v = 0;
    int bits = 0;
    for (char c : in) {
        if (c == '=') break;
        const char* at = strchr(kAlphabet, c);
        if (at == nullptr || c == '\0') return std::string();
        v = v << 6 | static_cast<uint32_t>(at - kAlphabet);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>(v >> bits));
        }
    }
    return out;
}

using Transform = std::string (*)(const std::string&);

// The one body of the MD5 and Base64 pairs: times `fn` on `input` after
// checking that it gives `expected` there (the library's own result, so a
// baseline that disagrees is not timed). Throughput counts kBlock bytes a
// call: decoding is counted in decoded bytes, as encoding is.
void timeTransform(benchmark::State& state, Transform fn, const std::string& input,
                   const std::string& expected) {
    if (fn(input) != expected) {
        state.SkipWithError("the baseline disagrees with the library");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(fn(input));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}

void BM_Md5(benchmark::State& state, Transform fn) {
    std::string data = randomBytes(kBlock);
    timeTransform(state, fn, data, md5Library(data));
}
BENCHMARK_CAPTURE(BM_Md5, MD5Check, md5Library);
BENCHMARK_CAPTURE(BM_Md5, Reference, md5Reference);

std::string base64Encode(const std::string& data) { return orvane::Base64::encode(data); }
std::string base64Decode(const std::string& text) { return orvane::Base64::decode(text); }

void BM_Base64Encode(benchmark::State& state, Transform fn) {
    std::string data = randomBytes(kBlock);
    timeTransform(state, fn, data, base64Encode(data));
}
BENCHMARK_CAPTURE(BM_Base64Encode, Base64, base64Encode);
BENCHMARK_CAPTURE(BM_Base64Encode, Naive, naiveEncode);

void BM_Base64Decode(benchmark::State& state, Transform fn) {
    std::string data = randomBytes(kBlock);
    timeTransform(state, fn, base64Encode(data), data);
}
BENCHMARK_CAPTURE(BM_Base64Decode, Base64, base64Decode);
BENCHMARK_CAPTURE(BM_Base64Decode, Naive, naiveDecode);

// An Endian reader and its plain form (memcpy, then a byte swap for big
// endian on this little-endian host), as types so that each instantiation
// of the summing loop calls its reader directly.
template <typename T, bool Big>
struct ReadEndian {
    static T read(const uint8_t* p) {
        return Big ? orvane::Endian::readBig<T>(p) : orvane::Endian::readLittle<T>(p);
    }
};
template <typename T, bool Big>
struct ReadMemcpy {
    static T read(const uint8_t* p) {
        T v;
        memcpy(&v, p, sizeof v);
        if (!Big) return v;
        return sizeof v == 4 ? static_cast<T>(__builtin_bswap32(static_cast<uint32_t>(v)))
                             : static_cast<T>(__builtin_bswap64(v));
    }
};

// Sums the words read at every byte offset (mostly unaligned).
template <typename Reader>
void BM_EndianSum(benchmark::State& state) {
    std::string data = randomBytes(kBlock + 8);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(data.data());
    for (auto _ : state) {
        decltype(Reader::read(p)) sum = 0;
        for (size_t i = 0; i < kBlock; ++i) sum += Reader::read(p + i);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK_TEMPLATE(BM_EndianSum, ReadEndian<uint32_t, true>);
BENCHMARK_TEMPLATE(BM_EndianSum, ReadMemcpy<uint32_t, true>);
BENCHMARK_TEMPLATE(BM_EndianSum, ReadEndian<uint64_t, false>);
BENCHMARK_TEMPLATE(BM_EndianSum, ReadMemcpy<uint64_t, false>);

}  // namespace
BENCHMARK_MAIN();
