// Task throughput: 100000 empty tasks through an AsyncTaskQueue with 2
// workers, next to boost::asio::thread_pool with 2 threads. One iteration
// puts every task and waits until the last has finished.
//
//   orvane_bench_taskqueue --benchmark_repetitions=5 --benchmark_report_aggregates_only

#include <benchmark/benchmark.h>
#include <orvane/AsyncTaskQueue.h>

#include <atomic>
#include <thread>

#ifdef ORVANE_BENCH_HAVE_BOOST
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#endif

namespace {

constexpr int kTasks = 100000;

void BM_AsyncTaskQueue(benchmark::State& state) {
    orvane::AsyncTaskQueue queue("bench");
    queue.init(2, orvane::SchedParam());
    const orvane::AsyncTaskQueue::Task task = [](const std::string&) {};
    const std::string name = "task";
    for (auto _ : state) {
        for (int i = 0; i < kTasks; ++i) queue.putTask(task, name);
        // The count drops when a task has finished, not when it is taken.
        while (queue.size() != 0) std::this_thread::yield();
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}
BENCHMARK(BM_AsyncTaskQueue)->UseRealTime()->Unit(benchmark::kMillisecond);

#ifdef ORVANE_BENCH_HAVE_BOOST
void BM_AsioThreadPool(benchmark::State& state) {
    boost::asio::thread_pool pool(2);
    std::atomic<int> done{0};
    for (auto _ : state) {
        done = 0;
        // asio keeps no count of finished work; the task keeps one instead.
        for (int i = 0; i < kTasks; ++i) {
            boost::asio::post(pool, [&done] { done.fetch_add(1, std::memory_order_relaxed); });
        }
        while (done.load(std::memory_order_relaxed) != kTasks) std::this_thread::yield();
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}
BENCHMARK(BM_AsioThreadPool)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
