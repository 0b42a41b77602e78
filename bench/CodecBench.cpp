// Throughput of the frame codec: the CRC over 4 KiB and 64 KiB, and encode,
// decode and parse for 16- and 255-byte payloads, each next to a
// straightforward version written here (byte-wise table CRC, byte-at-a-time
// escaping into growing strings, a receive buffer erased frame by frame).

#include <benchmark/benchmark.h>
#include <orvane/AnyPacket.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "../tests/codec/CodecModels.h"

#ifdef ORVANE_BENCH_HAVE_BOOST
#include <boost/crc.hpp>
#endif

namespace {

std::string randomBytes(size_t len, unsigned seed = 1) {
    std::mt19937 rng(seed);
    std::string out(len, '\0');
    for (char& c : out) c = static_cast<char>(rng());
    return out;
}

struct PlainTable {
    uint16_t entry[256];
    PlainTable() {
        for (int i = 0; i < 256; ++i) {
            uint16_t crc = static_cast<uint16_t>(i);
            for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1;
            entry[i] = crc;
        }
    }
};
const PlainTable plainTable;

uint16_t plainCrc(const std::string& data, uint16_t crc) {
    for (unsigned char byte : data) crc = plainTable.entry[(crc ^ byte) & 0xFF] ^ (crc >> 8);
    return crc;
}

std::string plainEncode(const std::string& payload) {
    std::string body(1, static_cast<char>(payload.size()));
    body += payload;
    uint16_t crc = plainCrc(body, 0xFFFF);
    body.push_back(static_cast<char>(crc & 0xFF));
    body.push_back(static_cast<char>(crc >> 8));
    std::string frame(1, '\xA5');
    for (char c : body) {
        if (c == '\xA5') {
            frame += "\xA0\x05";
        } else if (c == '\xA0') {
            frame += "\xA0\x0A";
        } else {
            frame.push_back(c);
        }
    }
    frame.push_back('\xA5');
    return frame;
}

std::string plainDecode(const std::string& frame) {
    if (frame.size() < 4 || frame.size() > 518) return std::string();
    if (frame.front() != '\xA5' || frame.back() != '\xA5') return std::string();
    std::string body;
    for (size_t i = 1; i + 1 < frame.size(); ++i) {
        if (frame[i] == '\xA0' && frame[i + 1] == '\x05') {
            body.push_back('\xA5');
            ++i;
        } else if (frame[i] == '\xA0' && frame[i + 1] == '\x0A') {
            body.push_back('\xA0');
            ++i;
        } else {
            body.push_back(frame[i]);
        }
    }
    if (body.size() < 3) return std::string();
    size_t m = body.size();
    uint16_t pktcrc = static_cast<uint16_t>(static_cast<unsigned char>(body[m - 2]) +
                                            256 * static_cast<unsigned char>(body[m - 1]));
    if (plainCrc(body.substr(0, m - 2), 0xFFFF) != pktcrc) return std::string();
    if (static_cast<unsigned char>(body[0]) != m - 3) return std::string();
    return body.substr(1, m - 3);
}

void BM_Crc_Orvane(benchmark::State& state) {
    std::string data = randomBytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(orvane::CRCCheck::check16CRC8005(data, 0xFFFF));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Crc_ByteTable(benchmark::State& state) {
    std::string data = randomBytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(plainCrc(data, 0xFFFF));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_Crc_Orvane)->Arg(4096)->Arg(65536);
BENCHMARK(BM_Crc_ByteTable)->Arg(4096)->Arg(65536);

#ifdef ORVANE_BENCH_HAVE_BOOST
void BM_Crc_Boost(benchmark::State& state) {
    std::string data = randomBytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        boost::crc_optimal<16, 0x8005, 0xFFFF, 0, true, true> crc;
        crc.process_bytes(data.data(), data.size());
        benchmark::DoNotOptimize(crc.checksum());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Crc_Boost)->Arg(4096)->Arg(65536);
#endif

void BM_Encode_Orvane(benchmark::State& state) {
    std::string payload = randomBytes(static_cast<size_t>(state.range(0)));
    orvane::AnyPacket::Frame frame;
    for (auto _ : state) benchmark::DoNotOptimize(frame.encode(payload));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Encode_Plain(benchmark::State& state) {
    std::string payload = randomBytes(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(plainEncode(payload));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Decode_Orvane(benchmark::State& state) {
    orvane::AnyPacket::Frame frame;
    std::string raw = frame.encode(randomBytes(static_cast<size_t>(state.range(0))));
    for (auto _ : state) benchmark::DoNotOptimize(frame.decode(raw));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Decode_Plain(benchmark::State& state) {
    std::string raw = plainEncode(randomBytes(static_cast<size_t>(state.range(0))));
    for (auto _ : state) benchmark::DoNotOptimize(plainDecode(raw));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_Encode_Orvane)->Arg(16)->Arg(255);
BENCHMARK(BM_Encode_Plain)->Arg(16)->Arg(255);
BENCHMARK(BM_Decode_Orvane)->Arg(16)->Arg(255);
BENCHMARK(BM_Decode_Plain)->Arg(16)->Arg(255);

// 32 frames arriving in one read; bytes counted on the wire.
std::string frameStream(size_t payload) {
    std::string stream;
    orvane::AnyPacket::Frame frame;
    for (unsigned i = 0; i < 32; ++i) stream += frame.encode(randomBytes(payload, i));
    return stream;
}

void BM_Parse_Orvane(benchmark::State& state) {
    std::string stream = frameStream(static_cast<size_t>(state.range(0)));
    orvane::AnyPacket packet;
    for (auto _ : state) benchmark::DoNotOptimize(packet.parse(stream));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.size()));
}

void BM_Parse_Plain(benchmark::State& state) {
    std::string stream = frameStream(static_cast<size_t>(state.range(0)));
    orvane::test::ParseModel model;
    for (auto _ : state) benchmark::DoNotOptimize(model.parse(stream));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(stream.size()));
}

BENCHMARK(BM_Parse_Orvane)->Arg(16)->Arg(255);
BENCHMARK(BM_Parse_Plain)->Arg(16)->Arg(255);

}  // namespace

BENCHMARK_MAIN();
