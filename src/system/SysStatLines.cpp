#include "system/SysStatLines.h"

#include <orvane/StrUtil.h>

#include <cstdio>

namespace orvane {

namespace {

// Summed in 32 bits, as the counters are kept.
uint32_t totalTicks(const SysStat::CpuStat& s) {
    return s.user + s.nice + s.system + s.idle + s.iowait + s.irq + s.softirq;
}

}  // namespace

namespace detail {

void takeCpuLine(const std::string& line, std::map<int, SysStat::CpuStat>* previous,
                 std::map<int, SysStat::CpuStat>* current) {
    if (!StrUtil::startsWith(line, "cpu")) return;
    std::vector<std::string> pieces = StrUtil::splitString(line, " ", true);
    if (pieces.size() < 8) return;
    int key = -1;
    unsigned int number = 0;
    // The kernel's CPU numbers are small: no overflow for sscanf to miss.
    // NOLINTNEXTLINE(cert-err34-c)
    if (pieces[0] != "cpu" && sscanf(pieces[0].c_str(), "cpu%u", &number) == 1) {
        key = static_cast<int>(number);
    }
    auto found = current->find(key);
    if (found == current->end()) {
        found = current->emplace(key, SysStat::CpuStat()).first;
        found->second.name = pieces[0];
    }
    SysStat::CpuStat& entry = found->second;
    (*previous)[key] = entry;
    uint32_t* counters[] = {&entry.user,   &entry.nice, &entry.system, &entry.idle,
                            &entry.iowait, &entry.irq,  &entry.softirq};
    for (size_t i = 0; i < sizeof counters / sizeof counters[0]; ++i) {
        *counters[i] = static_cast<uint32_t>(std::stoull(pieces[i + 1]));
    }
}

void takeMemLine(const std::string& line, int* total, int* free) {
    std::vector<std::string> pieces = StrUtil::splitString(line, " ", true);
    if (pieces.size() < 3) return;
    if (StrUtil::startsWith(pieces[0], "MemTotal:")) {
        *total = std::stoi(pieces[1]);
    } else if (StrUtil::startsWith(pieces[0], "MemFree:")) {
        *free = std::stoi(pieces[1]);
    }
}

float cpuUsage(const SysStat::CpuStat& before, const SysStat::CpuStat& now) {
    uint32_t totalDiff = totalTicks(now) - totalTicks(before);
    uint32_t idleDiff = now.idle - before.idle;
    return static_cast<float>(100.0 - static_cast<double>(idleDiff) * 100.0 /
                                          static_cast<double>(totalDiff));
}

}  // namespace detail

}  // namespace orvane
