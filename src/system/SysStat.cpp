#include <orvane/File.h>
#include <orvane/StrUtil.h>
#include <orvane/SysStat.h>
#include <unistd.h>

#include <cstdio>

#include "log/LogLine.h"
#include "system/SysStatLines.h"

namespace orvane {

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
