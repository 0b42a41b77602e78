// Put+get throughput of RingBuffer and LineBuffer next to plain memcpy and a
// mutex-guarded ring written here as the baseline. Arguments: chunk size and
// the offset of the caller's buffers from a 4 KiB boundary. The buffers have
// 256 KiB of storage, which glibc maps on its own pages (storage address = 16
// modulo 4096), so the offset fixes how far the copies' destinations lie
// ahead of their sources modulo 4 KiB.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <orvane/DataBuffer.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

constexpr int kCapacity = 256 * 1024;

// What a careful user would write without the library.
class MutexRing {
  public:
    explicit MutexRing(size_t capacity) : storage(capacity) {}

    int put(const char* data, int len) {
        std::lock_guard<std::mutex> guard(mutex);
        size_t n = std::min(static_cast<size_t>(len), storage.size() - count);
        size_t first = std::min(n, storage.size() - tail);
        memcpy(&storage[tail], data, first);
        memcpy(&storage[0], data + first, n - first);
        tail = (tail + n) % storage.size();
        count += n;
        return static_cast<int>(n);
    }

    int get(char* buf, int len) {
        std::lock_guard<std::mutex> guard(mutex);
        size_t n = std::min(static_cast<size_t>(len), count);
        size_t first = std::min(n, storage.size() - head);
        memcpy(buf, &storage[head], first);
        memcpy(buf + first, &storage[0], n - first);
        head = (head + n) % storage.size();
        count -= n;
        return static_cast<int>(n);
    }

  private:
    std::mutex mutex;
    std::vector<char> storage;
    size_t head = 0;
    size_t tail = 0;
    size_t count = 0;
};

// The caller's source and destination, `offset` bytes past a page boundary.
struct UserBuffers {
    UserBuffers(size_t chunk, size_t pageOffset)
        : in(static_cast<char*>(aligned_alloc(4096, chunk + 8192)) + pageOffset),
          out(static_cast<char*>(aligned_alloc(4096, chunk + 8192)) + pageOffset),
          offset(pageOffset) {
        memset(in, 'x', chunk);
    }
    ~UserBuffers() {
        free(in - offset);
        free(out - offset);
    }
    char* in;
    char* out;
    size_t offset;
};

template <typename PutGet>
void run(benchmark::State& state, PutGet&& putGet) {
    const int chunk = static_cast<int>(state.range(0));
    UserBuffers user(static_cast<size_t>(chunk), static_cast<size_t>(state.range(1)));
    for (auto _ : state) {
        int n = putGet(user.in, user.out, chunk);
        benchmark::DoNotOptimize(n);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * chunk);
}

void BM_Memcpy(benchmark::State& state) {
    // The same two copies as a put and a get, through storage 16 bytes past
    // a page boundary like the buffers'.
    char* storage = static_cast<char*>(aligned_alloc(4096, kCapacity + 4096)) + 16;
    run(state, [storage](char* in, char* out, int chunk) {
        memcpy(storage, in, static_cast<size_t>(chunk));
        memcpy(out, storage, static_cast<size_t>(chunk));
        return chunk;
    });
    free(storage - 16);
}

void BM_MutexRing(benchmark::State& state) {
    MutexRing ring(kCapacity);
    run(state, [&ring](char* in, char* out, int chunk) {
        ring.put(in, chunk);
        return ring.get(out, chunk);
    });
}

void BM_RingBuffer(benchmark::State& state) {
    orvane::RingBuffer ring;
    ring.init(kCapacity);
    run(state, [&ring](char* in, char* out, int chunk) {
        ring.putData(in, chunk);
        return ring.getData(out, chunk);
    });
}

void BM_LineBuffer(benchmark::State& state) {
    orvane::LineBuffer line;
    line.init(kCapacity);
    run(state, [&line](char* in, char* out, int chunk) {
        line.putData(in, chunk);
        return line.getData(out, chunk);
    });
}

void offsets(benchmark::internal::Benchmark* bench) {
    for (int chunk : {256, 4096}) {
        for (int offset : {0, 16, 32, 64, 2048}) bench->Args({chunk, offset});
    }
}

BENCHMARK(BM_Memcpy)->Apply(offsets);
BENCHMARK(BM_MutexRing)->Apply(offsets);
BENCHMARK(BM_RingBuffer)->Apply(offsets);
BENCHMARK(BM_LineBuffer)->Apply(offsets);

}  // namespace

int main(int argc, char** argv) {
    // A fixed threshold keeps every 256 KiB storage on pages of its own
    // (glibc otherwise raises it after the first such block is freed).
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
