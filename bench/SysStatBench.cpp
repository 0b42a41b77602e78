// SysStat's sampling cost against a plain iostream reader doing the same
// parsing of the same files, measured in the same run.
#include <benchmark/benchmark.h>
#include <orvane/SysStat.h>
#include <orvane/Time.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace {

void BM_SysStatUpdateCpuStat(benchmark::State& state) {
    orvane::SysStat stat;
    for (auto _ : state) {
        stat.updateCpuStat();
        benchmark::DoNotOptimize(stat.cpuCount());
    }
}
BENCHMARK(BM_SysStatUpdateCpuStat);

// Baseline: std::getline over an ifstream, cpu lines parsed with istringstream.
void BM_BaselineIfstreamCpuStat(benchmark::State& state) {
    std::map<int, unsigned long long> idle;
    for (auto _ : state) {
        std::ifstream in("/proc/stat");
        for (std::string line; std::getline(in, line);) {
            if (line.compare(0, 3, "cpu") != 0) continue;
            std::istringstream fields(line);
            std::string name;
            unsigned long long v[7] = {};
            fields >> name >> v[0] >> v[1] >> v[2] >> v[3] >> v[4] >> v[5] >> v[6];
            idle[name == "cpu" ? -1 : std::stoi(name.substr(3))] = v[3];
        }
        benchmark::DoNotOptimize(idle.size());
    }
}
BENCHMARK(BM_BaselineIfstreamCpuStat);

void BM_SysStatUpdateMemStat(benchmark::State& state) {
    orvane::SysStat stat;
    for (auto _ : state) {
        stat.updateMemStat();
        benchmark::DoNotOptimize(stat.memFree());
    }
}
BENCHMARK(BM_SysStatUpdateMemStat);

void BM_BaselineIfstreamMemInfo(benchmark::State& state) {
    for (auto _ : state) {
        std::ifstream in("/proc/meminfo");
        int total = 0, free = 0;
        for (std::string line; std::getline(in, line);) {
            std::istringstream fields(line);
            std::string key;
            int value = 0;
            fields >> key >> value;
            if (key == "MemTotal:") total = value;
            if (key == "MemFree:") free = value;
        }
        benchmark::DoNotOptimize(total + free);
    }
}
BENCHMARK(BM_BaselineIfstreamMemInfo);

void BM_DateTimeFromTime(benchmark::State& state) {
    orvane::Time now = orvane::Time::fromEpoch();
    for (auto _ : state) {
        orvane::DateTime dt(now);
        benchmark::DoNotOptimize(dt.weekday());
    }
}
BENCHMARK(BM_DateTimeFromTime);

}  // namespace

BENCHMARK_MAIN();
