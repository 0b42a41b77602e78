// Task throughput of an AsyncTaskQueue next to boost::asio::thread_pool, the
// same empty tasks through each. One iteration puts every task and waits
// until the last has finished.
//   - 1 posting thread, 2 workers, 100000 tasks;
//   - 4 posting threads, 4 workers, 100000 tasks (25000 from each poster).
//
//   orvane_bench_taskqueue --benchmark_repetitions=5 --benchmark_report_aggregates_only

#include <benchmark/benchmark.h>
#include <orvane/AsyncTaskQueue.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#ifdef ORVANE_BENCH_HAVE_BOOST
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#endif

namespace {

constexpr int kTasks = 100000;

// Runs post(n) on `posters` threads (the calling one among them), dividing
// kTasks between them, and returns when all have posted.
void postFrom(int posters, const std::function<void(int)>& post) {
    std::vector<std::thread> others;
    for (int i = 1; i < posters; ++i) others.emplace_back(post, kTasks / posters);
    post(kTasks / posters);
    for (auto& t : others) t.join();
}

// The two cases each pool runs: range(0) posting threads, range(1) workers.
void shapes(benchmark::internal::Benchmark* bench) {
    bench->Args({1, 2})
        ->Args({4, 4})
        ->ArgNames({"posters", "workers"})
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

void BM_AsyncTaskQueue(benchmark::State& state) {
    const int posters = static_cast<int>(state.range(0));
    orvane::AsyncTaskQueue queue("bench");
    queue.init(static_cast<int>(state.range(1)), orvane::SchedParam());
    const orvane::AsyncTaskQueue::Task task = [](const std::string&) {};
    const std::string name = "task";
    for (auto _ : state) {
        postFrom(posters, [&](int n) {
            for (int i = 0; i < n; ++i) queue.putTask(task, name);
        });
        // The count drops when a task has finished, not when it is taken.
        while (queue.size() != 0) std::this_thread::yield();
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}
BENCHMARK(BM_AsyncTaskQueue)->Apply(shapes);

#ifdef ORVANE_BENCH_HAVE_BOOST
void BM_AsioThreadPool(benchmark::State& state) {
    const int posters = static_cast<int>(state.range(0));
    boost::asio::thread_pool pool(static_cast<std::size_t>(state.range(1)));
    std::atomic<int> done{0};
    for (auto _ : state) {
        done = 0;
        // asio keeps no count of finished work; the task keeps one instead.
        postFrom(posters, [&](int n) {
            for (int i = 0; i < n; ++i) {
                boost::asio::post(pool, [&done] { done.fetch_add(1, std::memory_order_relaxed); });
            }
        });
        while (done.load(std::memory_order_relaxed) != kTasks) std::this_thread::yield();
    }
    state.SetItemsProcessed(state.iterations() * kTasks);
}
BENCHMARK(BM_AsioThreadPool)->Apply(shapes);
#endif

}  // namespace

BENCHMARK_MAIN();
