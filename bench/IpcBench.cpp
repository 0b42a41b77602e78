// MemShared::putData/getData of 4 KiB (each takes and drops an flock) against
// a plain memcpy of the same size, and a MsgQueue send+receive round trip
// against the same calls on a raw POSIX queue.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <mqueue.h>
#include <orvane/IODevice.h>
#include <orvane/MemShared.h>
#include <orvane/MsgQueue.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

constexpr int kBlock = 4096;

std::string shmName() { return "/orvane_bench_shm_" + std::to_string(::getpid()); }

void BM_Baseline_Memcpy4K(benchmark::State& state) {
    std::vector<char> from(kBlock, 'x'), to(kBlock);
    for (auto _ : state) {
        memcpy(to.data(), from.data(), kBlock);
        benchmark::ClobberMemory();
    }
}

void BM_MemSharedPutData4K(benchmark::State& state) {
    orvane::MemShared mem;
    if (!mem.open(shmName(), kBlock, orvane::IO_CREATE, orvane::MemShared::TYPE_SHM)) {
        state.SkipWithError("cannot open the shared memory");
        return;
    }
    std::vector<char> data(kBlock, 'x');
    for (auto _ : state) benchmark::DoNotOptimize(mem.putData(data.data(), kBlock));
}

void BM_MemSharedGetData4K(benchmark::State& state) {
    orvane::MemShared mem;
    if (!mem.open(shmName(), kBlock, orvane::IO_CREATE, orvane::MemShared::TYPE_SHM)) {
        state.SkipWithError("cannot open the shared memory");
        return;
    }
    std::vector<char> buf(kBlock);
    for (auto _ : state) {
        benchmark::DoNotOptimize(mem.getData(buf.data(), kBlock));
        benchmark::ClobberMemory();
    }
}

void BM_Baseline_RawMqRoundTrip(benchmark::State& state) {
    std::string name = "/orvane_bench_mq_" + std::to_string(::getpid());
    mq_attr attr{};
    attr.mq_maxmsg = 10;
    attr.mq_msgsize = sizeof(orvane::MsgBody);
    mqd_t mqd = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644, &attr);
    if (mqd < 0) {
        state.SkipWithError("cannot create a message queue");
        return;
    }
    const timespec past{0, 10};
    orvane::MsgBody msg{};
    msg.type = 1;
    msg.len = 16;
    for (auto _ : state) {
        mq_timedsend(mqd, reinterpret_cast<const char*>(&msg), sizeof msg, 0, &past);
        benchmark::DoNotOptimize(
            mq_timedreceive(mqd, reinterpret_cast<char*>(&msg), sizeof msg, nullptr, &past));
    }
    mq_close(mqd);
    mq_unlink(name.c_str());
}

void BM_MsgQueueRoundTrip(benchmark::State& state) {
    orvane::MsgQueue queue(1);
    if (!queue.initialize()) {
        state.SkipWithError("cannot create the message queue (needs /dev/mqueue or root)");
        return;
    }
    orvane::MsgBody msg{};
    msg.type = 1;
    msg.len = 16;
    for (auto _ : state) {
        queue.sendMsg(msg);
        benchmark::DoNotOptimize(queue.recvMsg(msg, 0));
    }
}

BENCHMARK(BM_Baseline_Memcpy4K);
BENCHMARK(BM_MemSharedPutData4K);
BENCHMARK(BM_MemSharedGetData4K);
BENCHMARK(BM_Baseline_RawMqRoundTrip);
BENCHMARK(BM_MsgQueueRoundTrip);

}  // namespace

BENCHMARK_MAIN();
