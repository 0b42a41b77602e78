// What DirectFile's alignment handling costs: aligned writes (straight to the
// kernel), unaligned writes (bounce buffer and read-modify-write of the edge
// blocks), against the baseline of a bare pwrite on an O_DIRECT descriptor.
// Runs in /var/tmp, which must take O_DIRECT; each write lands on one of 256
// slots so the file stays at most 1 MiB (plus the unaligned tail).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <orvane/DirectFile.h>
#include <orvane/Directory.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace {

constexpr int kSlots = 256;

struct Place {
    std::string dir = orvane::Directory::createTemp("/var/tmp", "orvane_bench_direct_");
    std::string path = dir + "/data";
    ~Place() { orvane::Directory::remove(dir); }
};

char* alignedBuffer(size_t size) {
    void* raw = nullptr;
    if (posix_memalign(&raw, 4096, size) != 0) return nullptr;
    std::fill_n(static_cast<char*>(raw), size, 'x');
    return static_cast<char*>(raw);
}

// DirectFile writes of state.range(0) bytes at slot multiples of that size.
void DirectFileWrite(benchmark::State& state) {
    Place place;
    orvane::DirectFile file;
    if (!file.open(place.path, orvane::IO_CREATE)) {
        state.SkipWithError("/var/tmp does not take O_DIRECT");
        return;
    }
    int len = static_cast<int>(state.range(0));
    char* buf = alignedBuffer(static_cast<size_t>(len));
    long slot = 0;
    for (auto _ : state) {
        file.setPos(slot++ % kSlots * len);
        benchmark::DoNotOptimize(file.writeData(buf, len));
    }
    free(buf);
    state.SetBytesProcessed(state.iterations() * len);
}
BENCHMARK(DirectFileWrite)->Arg(4096)->Arg(4000)->Arg(100);

// The peer: one pwrite per block on a bare O_DIRECT descriptor (aligned only).
void RawODirectWrite(benchmark::State& state) {
    Place place;
    int fd = ::open(place.path.c_str(), O_RDWR | O_CREAT | O_DIRECT | O_CLOEXEC, 0644);
    if (fd < 0) {
        state.SkipWithError("/var/tmp does not take O_DIRECT");
        return;
    }
    size_t len = static_cast<size_t>(state.range(0));
    char* buf = alignedBuffer(len);
    long slot = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(::pwrite(fd, buf, len, slot++ % kSlots * state.range(0)));
    }
    free(buf);
    ::close(fd);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(RawODirectWrite)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
