// File::writeData of 64-byte records, straight to the stream and through a
// 64 KiB write-merge buffer, with the C stream's own fwrite as the baseline.
// The file is rewound every MiB so it stays in the page cache.
#include <benchmark/benchmark.h>
#include <orvane/File.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

constexpr int kRecord = 64;
constexpr long kRewindBytes = 1 << 20;

std::string benchPath(const char* stem) {
    return "/tmp/orvane_bench_" + std::string(stem) + "_" + std::to_string(::getpid());
}

void writeRecords(benchmark::State& state, unsigned int wmSize) {
    std::string path = benchPath("file");
    orvane::File file;
    if (wmSize != 0) file.setWMBuffer(wmSize);
    if (!file.open(path, orvane::IO_CREATE)) {
        state.SkipWithError("cannot open the benchmark file");
        return;
    }
    char record[kRecord];
    for (int i = 0; i < kRecord; ++i) record[i] = static_cast<char>('a' + i % 26);
    long written = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(file.writeData(record, kRecord));
        written += kRecord;
        if (written >= kRewindBytes) {
            file.flush();
            file.setPos(0);
            written = 0;
        }
    }
    state.SetBytesProcessed(state.iterations() * kRecord);
    file.close();
    ::unlink(path.c_str());
}

void BM_FileWrite64(benchmark::State& state) { writeRecords(state, 0); }
void BM_FileWrite64_WriteMerge64K(benchmark::State& state) { writeRecords(state, 64 * 1024); }

void BM_Baseline_Fwrite64(benchmark::State& state) {
    std::string path = benchPath("fwrite");
    FILE* stream = fopen(path.c_str(), "wb+e");
    if (stream == nullptr) {
        state.SkipWithError("cannot open the benchmark file");
        return;
    }
    char record[kRecord] = {};
    long written = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(fwrite(record, 1, kRecord, stream));
        written += kRecord;
        if (written >= kRewindBytes) {
            fseek(stream, 0, SEEK_SET);
            written = 0;
        }
    }
    state.SetBytesProcessed(state.iterations() * kRecord);
    fclose(stream);
    ::unlink(path.c_str());
}

BENCHMARK(BM_Baseline_Fwrite64);
BENCHMARK(BM_FileWrite64);
BENCHMARK(BM_FileWrite64_WriteMerge64K);

}  // namespace

BENCHMARK_MAIN();
