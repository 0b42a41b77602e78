#pragma once

#include <orvane/Export.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvane {

// CPU and memory statistics of this machine, from "/proc/stat" and
// "/proc/meminfo". Each updateCpuStat() takes a new sample of the kernel's
// CPU time counters and keeps the one before, so usages are measured between
// the two last updates; after the first update they compare with zeros
// (usage since boot). The caller's own timer sets the interval.
// Failures: a file that cannot be opened is logged and leaves the figures as
// they were; a malformed number lets std::stoull's or std::stoi's exception
// through to the caller. No locks: one thread updates and reads an object.
class ORVANE_API SysStat {
  public:
    // The counters of one "cpu" line of /proc/stat, in clock ticks, kept to 32 bits.
    struct CpuStat {
        std::string name;  // "cpu" for the total line, "cpu<N>" for CPU N
        // Ticks in user mode.
        uint32_t user = 0;
        // Ticks in user mode at low priority.
        uint32_t nice = 0;
        // Ticks in kernel mode.
        uint32_t system = 0;
        // Ticks idle.
        uint32_t idle = 0;
        // Ticks idle waiting for I/O.
        uint32_t iowait = 0;
        // Ticks serving interrupts.
        uint32_t irq = 0;
        // Ticks serving soft interrupts.
        uint32_t softirq = 0;
    };

    SysStat();

    // updateCpuStat(), then updateMemStat(); true when both files were read.
    bool updateStat();
    // Takes a new CPU sample; the current one becomes the previous one.
    void updateCpuStat();
    // Reads MemTotal and MemFree; false when the file cannot be opened.
    bool updateMemStat();
    // Usage in percent of CPU cpu, or of the whole machine for -1, between
    // the two last samples; 0.0 for a CPU not sampled. Two samples with the
    // same tick totals give a non-finite value.
    float calculateCpuUsage(int cpu) const;
    // cpu >= 0: that CPU's usage alone, or the total's when cpu is not below
    // cpuCount(). cpu < 0: every CPU in order, then the total last.
    std::vector<float> cpuUsages(int cpu) const;

    // Entries of the last sample minus the total line.
    int cpuCount() const { return cpuCount_; }
    // In kB, as the kernel gives them.
    int memTotal() const { return memTotal_; }
    // MemFree in kB.
    int memFree() const { return memFree_; }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    bool readCpuStat();

    int cpuCount_ = 0;
    int memFree_ = 0;
    int memTotal_ = 0;
    std::map<int, CpuStat> previous;  // key: CPU number, -1 for the total
    std::map<int, CpuStat> current;
};

}  // namespace orvane
