#include <orvane/File.h>
#include <orvane/StrUtil.h>
#include <orvane/SysStat.h>
#include <unistd.h>

#include <cstdio>

#include "log/LogLine.h"
#include "system/SysStatLines.h"

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
    if (line.compare(0, 3, "cpu") != 0) return;
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
    if (pieces[0].compare(0, 9, "MemTotal:") == 0) {
        *total = std::stoi(pieces[1]);
    } else if (pieces[0].compare(0, 8, "MemFree:") == 0) {
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

namespace {

// Calls take(line) for each line of the file until the read yields nothing;
// false when the file cannot be opened. Readability is checked first so that
// a missing file is reported once, by the caller's own line.
template <typename Take>
bool forEachLine(const char* path, Take take) {
    File file;
    if (access(path, R_OK) != 0 || !file.open(path, IO_READ)) return false;
    std::string line;
    while (file.readLine(&line) >= 0 && !line.empty()) take(line);
    return true;
}

}  // namespace

SysStat::SysStat() : className("SysStat") {}

bool SysStat::updateStat() {
    bool cpuRead = readCpuStat();
    bool memRead = updateMemStat();
    return cpuRead && memRead;
}

void SysStat::updateCpuStat() { readCpuStat(); }

bool SysStat::readCpuStat() {
    bool opened = forEachLine("/proc/stat", [this](const std::string& line) {
        detail::takeCpuLine(line, &previous, &current);
    });
    if (!opened) {
        ORVANE_ERROR_IN("updateCpuStat", "cannot read cpu stat file !");
        return false;
    }
    cpuCount_ = static_cast<int>(current.size()) - 1;
    return true;
}

bool SysStat::updateMemStat() {
    bool opened = forEachLine("/proc/meminfo", [this](const std::string& line) {
        detail::takeMemLine(line, &memTotal_, &memFree_);
    });
    if (!opened) {
        ORVANE_ERROR("cannot read mem info file !");
        return false;
    }
    return true;
}

float SysStat::calculateCpuUsage(int cpu) const {
    auto now = current.find(cpu);
    auto before = previous.find(cpu);
    if (now == current.end() || before == previous.end()) return 0.0f;
    return detail::cpuUsage(before->second, now->second);
}

std::vector<float> SysStat::cpuUsages(int cpu) const {
    std::vector<float> usages;
    if (cpu >= 0) {
        usages.push_back(calculateCpuUsage(cpu < cpuCount_ ? cpu : -1));
        return usages;
    }
    for (int i = 0; i < cpuCount_; ++i) usages.push_back(calculateCpuUsage(i));
    usages.push_back(calculateCpuUsage(-1));
    return usages;
}

}  // namespace orvane
