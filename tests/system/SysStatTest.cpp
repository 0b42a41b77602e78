#include <orvane/SysStat.h>

#include "support/LogCapture.h"
#include "support/PrivateMount.h"
#include "system/SysStatLines.h"

namespace orvane {
namespace {

TEST(SysStat, MeasuresThisMachineBetweenTwoSamples) {
    SysStat stat;
    ASSERT_TRUE(stat.updateStat());
    int cpus = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    EXPECT_EQ(stat.cpuCount(), cpus);
    EXPECT_TRUE(stat.memFree() > 0 && stat.memFree() <= stat.memTotal());

    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a few ticks on every CPU
    stat.updateCpuStat();
    std::vector<float> usages = stat.cpuUsages(-1);
    ASSERT_EQ(usages.size(), static_cast<size_t>(cpus) + 1);
    for (float usage : usages) EXPECT_TRUE(usage >= 0.0f && usage <= 100.0f) << usage;  // no NaN
    EXPECT_EQ(stat.cpuUsages(cpus - 1), std::vector<float>{usages[cpus - 1]});
    EXPECT_EQ(stat.cpuUsages(cpus), std::vector<float>{usages.back()});  // not a CPU: the total
}

TEST(SysStat, ParsesKernelLinesAndShiftsTheOldCounters) {
    std::map<int, SysStat::CpuStat> previous, current;
    // Short cpu lines and other lines are ignored; extra numbers too, and
    // 64-bit values are kept to their low 32 bits.
    const char* const lines[] = {
        "cpu  10 0 10 80 0 0",   "intr 1 2 3 4 5 6 7 8", "",
        "cpu  10 0 10 80 0 0 0", "cpu3 1 2 3 4 5 6 7",   "cpu3 4294967301 2 3 4 5 6 17 8 9"};
    for (const char* line : lines) detail::takeCpuLine(line, &previous, &current);
    EXPECT_EQ(detail::cpuUsage(previous[-1], current[-1]), 20.0f);  // first: against zeros
    EXPECT_TRUE(current.size() == 2u && previous[3].user == 1u && current[3].user == 5u &&
                current[3].softirq == 17u);
    EXPECT_THROW(detail::takeCpuLine("cpu1 9 8 x 1 1 1 1", &previous, &current),
                 std::invalid_argument);
    // The user counter wraps between the samples.
    SysStat::CpuStat before{"cpu", 0xFFFFFFF0u}, now{"cpu", 0x10u, 0, 0, 0x20u};
    EXPECT_EQ(detail::cpuUsage(before, now), 50.0f);

    int total = 0, free = 0;
    for (const char* line : {"MemTotal:   16318000 kB", "MemFree:   204800 kB",
                             "MemAvailable:  9999 kB", "MemFree: 5"}) {
        detail::takeMemLine(line, &total, &free);
    }
    EXPECT_TRUE(total == 16318000 && free == 204800) << total << " " << free;
}

// Runs in the death-test child: samples, hides /proc, samples again; the
// figures stay as they were and each failed read is logged once.
void updateWithoutProc() {
    SysStat stat;
    stat.updateStat();
    const auto before = std::make_pair(stat.cpuUsages(-1), stat.memTotal());
    if (!test::hideDirectory("/proc")) _exit(2);

    auto lines = test::LogCapture::get().linesDuring([&] { EXPECT_FALSE(stat.updateStat()); });
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "<E>DATE [SysStat::updateCpuStat,L#] cannot read cpu stat file !",
                         "<E>DATE [SysStat::updateMemStat,L#] cannot read mem info file !"}));
    EXPECT_EQ(std::make_pair(stat.cpuUsages(-1), stat.memTotal()), before);
    test::exitWithChecks();
}

TEST(SysStatDeathTest, MissingKernelFilesLeaveTheFiguresAsTheyWere) {
    if (!test::canHideDirectory("/proc")) GTEST_SKIP() << "no private mount namespace here";
    EXPECT_EXIT(updateWithoutProc(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
