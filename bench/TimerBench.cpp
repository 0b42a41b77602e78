// Precision of a 10 ms periodic timer of each kind over 200 firings: the
// lateness of each firing against its ideal time (start + k x 10 ms), the
// error of each interval against 10 ms, and the CPU time the firing thread
// uses per second. The baseline is a plain thread sleeping to absolute
// deadlines (clock_nanosleep through sleep_until).
//
//   orvane_bench_timer --benchmark_repetitions=5 --benchmark_report_aggregates_only

#include <benchmark/benchmark.h>
#include <orvane/Timer.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kPeriodMs = 10;
constexpr size_t kFirings = 200;

double cpuSecondsOfThisThread() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Collects firing times on the timer's thread; reads that thread's CPU time
// at the first and the last firing.
class Probe : public orvane::TimerListener {
  public:
    Probe() { times.reserve(kFirings); }

    void onTimer(int) override { fire(); }

    void fire() {
        if (times.size() >= kFirings) return;
        times.push_back(Clock::now());
        if (times.size() == 1) cpuFirst = cpuSecondsOfThisThread();
        if (times.size() == kFirings) {
            cpuLast = cpuSecondsOfThisThread();
            finished = true;
        }
    }

    void waitDone() const {
        while (!finished) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    void report(benchmark::State& state, Clock::time_point start) const {
        std::vector<double> lateUs, jitterUs;
        for (size_t k = 0; k < times.size(); ++k) {
            auto ideal = start + std::chrono::milliseconds(kPeriodMs * static_cast<int>(k + 1));
            lateUs.push_back(std::chrono::duration<double, std::micro>(times[k] - ideal).count());
            if (k == 0) continue;
            double interval =
                std::chrono::duration<double, std::micro>(times[k] - times[k - 1]).count();
            jitterUs.push_back(std::fabs(interval - kPeriodMs * 1000.0));
        }
        double wall = std::chrono::duration<double>(times.back() - times.front()).count();
        state.counters["late_med_us"] = percentile(lateUs, 0.5);
        state.counters["late_p99_us"] = percentile(lateUs, 0.99);
        state.counters["jitter_med_us"] = percentile(jitterUs, 0.5);
        state.counters["jitter_p99_us"] = percentile(jitterUs, 0.99);
        state.counters["cpu_ms_per_s"] = (cpuLast - cpuFirst) * 1000.0 / wall;
    }

  private:
    static double percentile(std::vector<double> values, double p) {
        std::sort(values.begin(), values.end());
        size_t index = static_cast<size_t>(p * static_cast<double>(values.size() - 1) + 0.5);
        return values[std::min(index, values.size() - 1)];
    }

    std::vector<Clock::time_point> times;
    double cpuFirst = 0;
    double cpuLast = 0;
    std::atomic<bool> finished{false};
};

void BM_Baseline_SleepUntil(benchmark::State& state) {
    for (auto _ : state) {
        Probe probe;
        auto start = Clock::now();
        std::thread sleeper([&] {
            for (size_t k = 1; k <= kFirings; ++k) {
                std::this_thread::sleep_until(start +
                                              std::chrono::milliseconds(kPeriodMs * int(k)));
                probe.fire();
            }
        });
        probe.waitDone();
        sleeper.join();
        probe.report(state, start);
    }
}

void BM_TimerManager(benchmark::State& state) {
    for (auto _ : state) {
        Probe probe;
        orvane::TimerManager manager;
        manager.start();
        orvane::Timer timer(kPeriodMs, true);
        auto start = Clock::now();
        manager.registerTimer(timer, [&probe] { probe.fire(); });
        probe.waitDone();
        manager.unregisterTimer(timer);
        manager.stop();
        probe.report(state, start);
    }
}

// RTimer or HRTimer: a timer with its own thread and a listener.
template <class TimerType>
void BM_ThreadTimer(benchmark::State& state) {
    for (auto _ : state) {
        Probe probe;
        TimerType timer(probe, 1);
        auto start = Clock::now();
        timer.start(kPeriodMs, true);
        probe.waitDone();
        timer.stop();
        probe.report(state, start);
    }
}

BENCHMARK(BM_Baseline_SleepUntil)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_TimerManager)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_TEMPLATE(BM_ThreadTimer, orvane::RTimer)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_TEMPLATE(BM_ThreadTimer, orvane::HRTimer)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
