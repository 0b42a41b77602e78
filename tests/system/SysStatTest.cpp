#include <gtest/gtest.h>
#include <orvane/SysStat.h>
#include <orvane/Time.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <stdexcept>
#include <string>

#include "support/LogCapture.h"
#include "system/PrivateMount.h"
#include "system/SysStatLines.h"

namespace orvane {
namespace {

using CpuMap = std::map<int, SysStat::CpuStat>;

int kernelCpuLines() {
    std::ifstream in("/proc/stat");
    int n = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, 3, "cpu") == 0 && line.compare(0, 4, "cpu ") != 0) ++n;
    }
    return n;
}

void burnCpu(int ms) {
    int64_t until = Time::fromMono().toMicroSec() + ms * 1000;
    volatile uint64_t sink = 0;
    while (Time::fromMono().toMicroSec() < until) sink = sink + 1;
}

void expectPercent(float usage) {
    EXPECT_TRUE(std::isfinite(usage)) << usage;
    EXPECT_GE(usage, 0.0f);
    EXPECT_LE(usage, 100.0f);
}

TEST(SysStat, StartsEmptyAndReportsZeroUsage) {
    SysStat stat;
    EXPECT_EQ(stat.cpuCount(), 0);
    EXPECT_EQ(stat.memTotal(), 0);
    EXPECT_EQ(stat.memFree(), 0);
    EXPECT_EQ(stat.cpuUsages(-1), std::vector<float>{0.0f});
    EXPECT_EQ(stat.cpuUsages(3), std::vector<float>{0.0f});
    EXPECT_EQ(stat.calculateCpuUsage(0), 0.0f);
}

TEST(SysStat, MeasuresThisMachineBetweenTwoSamples) {
    SysStat stat;
    ASSERT_TRUE(stat.updateStat());
    int cpus = stat.cpuCount();
    EXPECT_EQ(cpus, kernelCpuLines());
    EXPECT_EQ(cpus, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_GT(stat.memTotal(), 0);
    EXPECT_GT(stat.memFree(), 0);
    EXPECT_LE(stat.memFree(), stat.memTotal());
    // One sample: usage since boot.
    for (float usage : stat.cpuUsages(-1)) expectPercent(usage);

    burnCpu(60);  // a few ticks on every CPU, some of them busy
    stat.updateCpuStat();
    EXPECT_EQ(stat.cpuCount(), cpus);
    std::vector<float> usages = stat.cpuUsages(-1);
    ASSERT_EQ(usages.size(), static_cast<size_t>(cpus) + 1);
    for (float usage : usages) expectPercent(usage);
    EXPECT_GT(usages.back(), 0.0f);
    EXPECT_EQ(usages.back(), stat.calculateCpuUsage(-1));
    EXPECT_EQ(stat.cpuUsages(0), std::vector<float>{stat.calculateCpuUsage(0)});
    EXPECT_EQ(stat.cpuUsages(cpus - 1), std::vector<float>{stat.calculateCpuUsage(cpus - 1)});
    // Unknown CPUs: the total, or 0.0 when asked for directly.
    EXPECT_EQ(stat.cpuUsages(cpus), std::vector<float>{usages.back()});
    EXPECT_EQ(stat.cpuUsages(cpus + 7), std::vector<float>{usages.back()});
    EXPECT_EQ(stat.calculateCpuUsage(cpus + 7), 0.0f);
    EXPECT_EQ(stat.calculateCpuUsage(-2), 0.0f);
}

TEST(SysStat, ReadsCpuLinesByTheirKeyAndShiftsTheOldCounters) {
    CpuMap previous, current;
    detail::takeCpuLine("cpu  10 0 10 80 0 0 0", &previous, &current);
    ASSERT_EQ(current.count(-1), 1u);
    EXPECT_EQ(current[-1].name, "cpu");
    EXPECT_EQ(current[-1].user, 10u);
    EXPECT_EQ(current[-1].idle, 80u);
    EXPECT_EQ(previous[-1].idle, 0u);  // first sample: compared with zeros
    EXPECT_EQ(detail::cpuUsage(previous[-1], current[-1]), 20.0f);

    detail::takeCpuLine("cpu  10 0 10 80 0 0", &previous, &current);  // six numbers: skipped
    EXPECT_EQ(previous[-1].idle, 0u);
    detail::takeCpuLine("intr 1 2 3 4 5 6 7 8", &previous, &current);
    detail::takeCpuLine("", &previous, &current);
    EXPECT_EQ(current.size(), 1u);

    // Extra numbers are ignored; 64-bit values are kept to their low 32 bits.
    detail::takeCpuLine("cpu3 1 2 3 4 5 6 7 8 9 10", &previous, &current);
    detail::takeCpuLine("cpu3 4294967301 2 3 4 5 6 17 8 9 10", &previous, &current);
    EXPECT_EQ(current[3].name, "cpu3");
    EXPECT_EQ(current[3].user, 5u);
    EXPECT_EQ(current[3].softirq, 17u);
    EXPECT_EQ(previous[3].user, 1u);
    EXPECT_EQ(previous[3].softirq, 7u);

    // A name that is not cpu<N> falls back to the total's key.
    detail::takeCpuLine("cpuX 20 0 20 160 0 0 0", &previous, &current);
    EXPECT_EQ(current[-1].user, 20u);
    EXPECT_EQ(previous[-1].user, 10u);
    EXPECT_EQ(current.size(), 2u);
}

TEST(SysStat, MalformedNumbersThrowAfterTheEarlierCountersWereStored) {
    CpuMap previous, current;
    detail::takeCpuLine("cpu1 1 1 1 1 1 1 1", &previous, &current);
    EXPECT_THROW(detail::takeCpuLine("cpu1 9 8 x 1 1 1 1", &previous, &current),
                 std::invalid_argument);
    EXPECT_EQ(current[1].user, 9u);
    EXPECT_EQ(current[1].nice, 8u);
    EXPECT_EQ(current[1].system, 1u);
    EXPECT_THROW(
        detail::takeCpuLine("cpu1 99999999999999999999999 0 0 0 0 0 0", &previous, &current),
        std::out_of_range);

    int total = 0, free = 0;
    detail::takeMemLine("MemTotal:       16318000 kB", &total, &free);
    detail::takeMemLine("MemFree:          204800 kB", &total, &free);
    detail::takeMemLine("MemAvailable:    9999999 kB", &total, &free);
    detail::takeMemLine("MemFree: 5", &total, &free);  // two pieces: skipped
    EXPECT_EQ(total, 16318000);
    EXPECT_EQ(free, 204800);
    EXPECT_THROW(detail::takeMemLine("MemFree: lots kB", &total, &free), std::invalid_argument);
    EXPECT_THROW(detail::takeMemLine("MemTotal: 99999999999 kB", &total, &free), std::out_of_range);
}

TEST(SysStat, UsageTakesDifferencesIn32BitsAndDoesNotGuardEqualTotals) {
    SysStat::CpuStat before, now;
    before.user = 0xFFFFFFF0u;  // the user counter wraps between the samples
    now.user = 0x10u;
    now.idle = 0x20u;
    EXPECT_EQ(detail::cpuUsage(before, now), 50.0f);
    EXPECT_FALSE(std::isfinite(detail::cpuUsage(now, now)));
}

// Runs in the death-test child: samples, hides /proc, samples again, and
// exits 0 when the figures stayed and the four lines were logged.
void updateWithoutProc() {
    SysStat stat;
    stat.updateStat();
    burnCpu(30);
    stat.updateCpuStat();
    int cpus = stat.cpuCount();
    int memTotal = stat.memTotal();
    std::vector<float> usages = stat.cpuUsages(-1);
    if (!test::hideDirectory("/proc")) _exit(2);

    auto& capture = test::LogCapture::get();
    bool updated = stat.updateStat();
    stat.updateCpuStat();
    bool memUpdated = stat.updateMemStat();
    bool kept =
        stat.cpuCount() == cpus && stat.memTotal() == memTotal && stat.cpuUsages(-1) == usages;
    capture.waitFor("cannot read", 3000, 4);
    std::vector<std::string> lines;
    for (const auto& entry : capture.lines()) {
        lines.push_back(test::LogCapture::normalise(entry.second));
        fprintf(stderr, "%s\n", lines.back().c_str());
    }
    const std::string cpuLine = "<E>DATE [SysStat::updateCpuStat,L#] cannot read cpu stat file !";
    const std::string memLine = "<E>DATE [SysStat::updateMemStat,L#] cannot read mem info file !";
    bool logged = lines == std::vector<std::string>{cpuLine, memLine, cpuLine, memLine};
    fprintf(stderr, "updated %d/%d kept %d logged %d\n", updated, memUpdated, kept, logged);
    _exit(!updated && !memUpdated && kept && logged ? 0 : 1);
}

TEST(SysStatDeathTest, MissingKernelFilesLeaveTheFiguresAsTheyWere) {
    if (!test::canHideDirectory("/proc")) GTEST_SKIP() << "no private mount namespace here";
    EXPECT_EXIT(updateWithoutProc(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
