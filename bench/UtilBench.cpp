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

void BM_Md5_MD5Check(benchmark::State& state) {
    std::string data = randomBytes(kBlock);
    for (auto _ : state) {
        benchmark::DoNotOptimize(orvane::MD5Check::digestOf(data));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_Md5_MD5Check);

void BM_Md5_Reference(benchmark::State& state) {
    std::string data = randomBytes(kBlock);
    ReferenceMd5 md5;
    uint8_t out[16];
    md5.digest(reinterpret_cast<const uint8_t*>(data.data()), data.size(), out);
    if (memcmp(out, orvane::MD5Check::digestOf(data).data(), 16) != 0) {
        state.SkipWithError("the reference MD5 disagrees with MD5Check");
        return;
    }
    for (auto _ : state) {
        md5.digest(reinterpret_cast<const uint8_t*>(data.data()), data.size(), out);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_Md5_Reference);

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

void BM_Base64Encode_Base64(benchmark::State& state) {
    std::string data = randomBytes(kBlock);
    for (auto _ : state) benchmark::DoNotOptimize(orvane::Base64::encode(data));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_Base64Encode_Base64);

void BM_Base64Encode_Naive(benchmark::State& state) {
    std::string data = randomBytes(kBlock);
    if (naiveEncode(data) != orvane::Base64::encode(data)) {
        state.SkipWithError("the naive encoder disagrees");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(naiveEncode(data));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_Base64Encode_Naive);

// Decoding throughput is counted in decoded bytes, as for encoding.
void BM_Base64Decode_Base64(benchmark::State& state) {
    std::string text = orvane::Base64::encode(randomBytes(kBlock));
    std::string out;
    for (auto _ : state) {
        benchmark::DoNotOptimize(orvane::Base64::decode(text, &out));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_Base64Decode_Base64);

void BM_Base64Decode_Naive(benchmark::State& state) {
    std::string data = randomBytes(kBlock);
    std::string text = orvane::Base64::encode(data);
    if (naiveDecode(text) != data) {
        state.SkipWithError("the naive decoder disagrees");
        return;
    }
    for (auto _ : state) benchmark::DoNotOptimize(naiveDecode(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_Base64Decode_Naive);

// Sums big-endian 32-bit words at every byte offset (mostly unaligned).
void BM_EndianReadBig32_Endian(benchmark::State& state) {
    std::string data = randomBytes(kBlock + 8);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(data.data());
    for (auto _ : state) {
        uint32_t sum = 0;
        for (size_t i = 0; i < kBlock; ++i) sum += orvane::Endian::readBig<uint32_t>(p + i);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_EndianReadBig32_Endian);

void BM_EndianReadBig32_MemcpyBswap(benchmark::State& state) {
    std::string data = randomBytes(kBlock + 8);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(data.data());
    for (auto _ : state) {
        uint32_t sum = 0;
        for (size_t i = 0; i < kBlock; ++i) {
            uint32_t v;
            memcpy(&v, p + i, sizeof v);
            sum += __builtin_bswap32(v);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_EndianReadBig32_MemcpyBswap);

void BM_EndianReadLittle64_Endian(benchmark::State& state) {
    std::string data = randomBytes(kBlock + 8);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(data.data());
    for (auto _ : state) {
        uint64_t sum = 0;
        for (size_t i = 0; i < kBlock; ++i) sum += orvane::Endian::readLittle<uint64_t>(p + i);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_EndianReadLittle64_Endian);

void BM_EndianReadLittle64_Memcpy(benchmark::State& state) {
    std::string data = randomBytes(kBlock + 8);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(data.data());
    for (auto _ : state) {
        uint64_t sum = 0;
        for (size_t i = 0; i < kBlock; ++i) {
            uint64_t v;
            memcpy(&v, p + i, sizeof v);
            sum += v;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kBlock));
}
BENCHMARK(BM_EndianReadLittle64_Memcpy);

}  // namespace
BENCHMARK_MAIN();
