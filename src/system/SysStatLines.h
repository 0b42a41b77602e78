#pragma once

// How SysStat reads single lines of "/proc/stat" and "/proc/meminfo", apart
// from the fixed files, so the rules can be checked line by line, and how
// two samples become a usage. Hidden in the library; the tests build their
// own copy of SysStatLines.cpp.

#include <orvane/SysStat.h>

#include <map>
#include <string>

namespace orvane {
namespace detail {

// One line of /proc/stat: a "cpu" line of at least 8 pieces moves the
// current entry of its key into previous and reads the seven counters into
// current. Other lines change nothing. std::stoull's exceptions pass through.
void takeCpuLine(const std::string& line, std::map<int, SysStat::CpuStat>* previous,
                 std::map<int, SysStat::CpuStat>* current);
// One line of /proc/meminfo: "MemTotal:" and "MemFree:" lines of at least 3
// pieces set *total or *free. std::stoi's exceptions pass through.
void takeMemLine(const std::string& line, int* total, int* free);
// 100 - idle share of the ticks between two entries, differences taken in
// 32 bits (so a counter that wrapped still counts right); equal totals give
// a non-finite value.
float cpuUsage(const SysStat::CpuStat& before, const SysStat::CpuStat& now);

}  // namespace detail
}  // namespace orvane
