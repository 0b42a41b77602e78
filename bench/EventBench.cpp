// Cost of one EventDispatcher::dispatchEvent call with one listener that
// answers at once, against the mechanism it is built on (one std::async
// task started and joined per call) and a direct call of the listener.
//
//   orvane_bench_event --benchmark_repetitions=5 --benchmark_report_aggregates_only

#include <benchmark/benchmark.h>
#include <orvane/Event.h>

#include <future>
#include <memory>

namespace {

class Answer : public orvane::EventListener {
  public:
    int onEvent(std::shared_ptr<orvane::Event> event) override { return event ? 1 : 0; }
};

void BM_DirectListenerCall(benchmark::State& state) {
    Answer listener;
    orvane::EventListener* target = &listener;
    auto event = std::make_shared<orvane::Event>();
    for (auto _ : state) benchmark::DoNotOptimize(target->onEvent(event));
}

void BM_Baseline_AsyncTask(benchmark::State& state) {
    Answer listener;
    auto event = std::make_shared<orvane::Event>();
    for (auto _ : state) {
        auto answer = std::async(std::launch::async, [&] { return listener.onEvent(event); });
        benchmark::DoNotOptimize(answer.get());
    }
}

void BM_DispatchEvent(benchmark::State& state) {
    Answer listener;
    orvane::EventDispatcher dispatcher;
    dispatcher.addListener(&listener);
    auto event = std::make_shared<orvane::Event>();
    const int timeoutMs = static_cast<int>(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(dispatcher.dispatchEvent(event, timeoutMs));
}

BENCHMARK(BM_DirectListenerCall);
BENCHMARK(BM_Baseline_AsyncTask)->UseRealTime();
BENCHMARK(BM_DispatchEvent)->Arg(100)->Arg(0)->ArgName("timeoutMs")->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
