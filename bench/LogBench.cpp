// The caller's cost of one log line: orvane's Tracer against spdlog's
// asynchronous logger, both writing the library's line shape to a sink that
// discards it, and the cost of a line filtered out by level.
//
//   orvane_bench_log --benchmark_repetitions=5 --benchmark_report_aggregates_only

#include <benchmark/benchmark.h>
#include <orvane/Tracer.h>
#include <orvane/TracerSink.h>

#include <memory>

#include "log/LogLine.h"

#ifdef ORVANE_BENCH_HAVE_SPDLOG
#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

class DiscardSink : public orvane::TracerSink {
  public:
    void sink(int, const std::string& line) override { benchmark::DoNotOptimize(line.data()); }
};

orvane::Tracer& startedTracer() {
    static orvane::Tracer& tracer = []() -> orvane::Tracer& {
        orvane::Tracer& t = orvane::Tracer::getInstance();
        t.addSink(std::make_shared<DiscardSink>());
        t.start();
        return t;
    }();
    return tracer;
}

// A class that logs the way the library does: tag, date, [class::method,Lline],
// then about 60 characters of text with three arguments.
struct Device {
    std::string className = "SerialPort";
    int session = 0;

    void logged(int fd) {
        ORVANE_WARN("port %s opened on fd %d, session %d is ready for data.", "/dev/ttyS1", fd,
                    ++session);
    }
    void noted(int fd) {
        ORVANE_NOTE("port %s opened on fd %d, session %d is ready for data.", "/dev/ttyS1", fd,
                    ++session);
    }
};

void BM_Tracer_Print(benchmark::State& state) {
    startedTracer();
    Device device;
    for (auto _ : state) device.logged(7);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tracer_Print)->Threads(1)->Threads(2)->UseRealTime();

// An info line while the Tracer shows warnings and above: the macro checks
// the level before it evaluates any argument.
void BM_Tracer_Filtered(benchmark::State& state) {
    orvane::Tracer& tracer = startedTracer();
    tracer.setLevel(2);
    Device device;
    for (auto _ : state) device.noted(7);
    tracer.setLevel(1);
    benchmark::DoNotOptimize(device.session);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tracer_Filtered);

// The same filtered line through Tracer::print itself, as a program that does
// not use the library's macros writes it: the arguments are evaluated, as
// they are for spdlog, and print checks the level before anything else.
void BM_Tracer_PrintFiltered(benchmark::State& state) {
    orvane::Tracer& tracer = startedTracer();
    int session = 0;
    for (auto _ : state) {
        tracer.print(0, "<D>[%s::%s,L%d] port %s opened on fd %d, session %d is ready for data.",
                     "SerialPort", "filtered", __LINE__, "/dev/ttyS1", 7, ++session);
    }
    benchmark::DoNotOptimize(session);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Tracer_PrintFiltered);

#ifdef ORVANE_BENCH_HAVE_SPDLOG
std::shared_ptr<spdlog::logger> asyncLogger() {
    static std::shared_ptr<spdlog::logger> logger = [] {
        spdlog::init_thread_pool(8192, 1);
        auto sink = std::make_shared<spdlog::sinks::null_sink_mt>();
        auto created = std::make_shared<spdlog::async_logger>("bench", sink, spdlog::thread_pool(),
                                                              spdlog::async_overflow_policy::block);
        // The same shape: tag, local date-time, then the caller's header and text.
        created->set_pattern("<W>%Y-%m-%d %H:%M:%S %v");
        return created;
    }();
    return logger;
}

void BM_Spdlog_Async(benchmark::State& state) {
    auto logger = asyncLogger();
    int session = 0;
    for (auto _ : state) {
        logger->warn("[{}::{},L{}] port {} opened on fd {}, session {} is ready for data.",
                     "SerialPort", "logged", __LINE__, "/dev/ttyS1", 7, ++session);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Spdlog_Async)->Threads(1)->Threads(2)->UseRealTime();

void BM_Spdlog_Filtered(benchmark::State& state) {
    auto logger = asyncLogger();
    int session = 0;
    for (auto _ : state) {
        logger->debug("[{}::{},L{}] port {} opened on fd {}, session {} is ready for data.",
                      "SerialPort", "filtered", __LINE__, "/dev/ttyS1", 7, ++session);
    }
    benchmark::DoNotOptimize(session);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Spdlog_Filtered);
#endif

}  // namespace

BENCHMARK_MAIN();
