#pragma once

#include <orvane/Export.h>

#include <string>
#include <vector>

namespace orvane {

// Process and system control: facts about the host and this process,
// renaming the process, running commands (with a time limit and their
// output captured), finding and signalling processes, resource limits, and
// rebooting or powering the device off.
//
//     std::string out;
//     int status = System::runCommand("uname -r", 2000000, &out);  // 0, out "6.1.0\n"
//     for (int pid : System::findProcesses("udhcpc")) System::sendSignal(pid, SIGUSR1);
//     System::setProcessName("gateway");
//
// All static, no state; any thread may call. Failures are logged once and
// give false, -1 (an error), -2 (a timeout), or an empty string or list;
// getTaskId and execute log nothing. runCommand blocks the caller until the
// command ends or its time runs out; findProcesses reads /proc once per
// process (about 20 us each); the other calls are one system call.
class ORVANE_API System {
  public:
    // The kernel task id of the calling thread; stores the low 32 bits of
    // pthread_self() in *pthreadId when given.
    static int getTaskId(unsigned int* pthreadId = nullptr);
    // Runs command through "/bin/sh -c" and waits for it to end; true when
    // it exits with status 0. Logs nothing: the caller reports the failure.
    // A process that ignores SIGCHLD cannot wait for the child and gets false.
    static bool execute(const std::string& command);

    // The host name (uname's nodename); "" on failure.
    static std::string getHostName();
    // Milliseconds since boot, time suspended included (CLOCK_BOOTTIME); -1.
    static long long getUptimeMs();
    // The 1, 5 and 15 minute load averages (any pointer may be null).
    static bool getLoadAverage(double* one, double* five, double* fifteen);
    // CPUs online now; -1 on failure.
    static int getCpuCount();
    // The memory page size in bytes.
    static int getPageSize();
    // This process's id.
    static int getProcessId();
    // The name of this process (its main thread's name, as ps shows it,
    // at most 15 characters); "" on failure.
    static std::string getProcessName();
    // Renames the calling thread (prctl PR_SET_NAME); called on the main
    // thread it renames the process as ps and top show it. Names longer than
    // 15 characters are cut to 15; an empty name is refused.
    static bool setProcessName(const std::string& name);

    // Runs command through "/bin/sh -c" with stdin from /dev/null and
    // stdout and stderr together collected into *output (when given; the
    // first 1 MiB is kept, the rest read and dropped). Waits at most timeoutUs
    // microseconds (negative: without limit); when the time runs out the
    // command's whole process group is killed with SIGKILL. Returns the exit
    // status (0 to 255; 128 + the signal number when a signal ended it), -1
    // when it could not run, -2 on timeout. The command starts in a process
    // group of its own, with the default signal dispositions and an empty
    // signal mask whatever this process set.
    static int runCommand(const std::string& command, int timeoutUs, std::string* output = nullptr);
    // Ids of the processes whose name (as getProcessName gives it) or whose
    // program file name (argv[0] without its directory) is `name`, in
    // ascending order; empty when none (not an error, nothing logged).
    static std::vector<int> findProcesses(const std::string& name);
    // Sends `signal` (0 only checks that the process exists and may be
    // signalled) to the process `pid`. pid must be above 0: process groups
    // and "every process" (-1) are refused.
    static bool sendSignal(int pid, int signal);

    // The soft and hard limit of `resource` (RLIMIT_NOFILE, RLIMIT_CORE,
    // ...) of this process; -1 stands for unlimited.
    static bool getResourceLimit(int resource, long long* soft, long long* hard);
    // Sets both limits (-1: unlimited). Raising the hard limit needs
    // CAP_SYS_RESOURCE; soft may not exceed hard.
    static bool setResourceLimit(int resource, long long soft, long long hard);

    // Flushes the file systems and restarts / powers off the machine at once
    // (no orderly shutdown of services). Needs CAP_SYS_BOOT: without it the
    // call is refused with a logged line before anything is done, and
    // returns false. On success it does not return.
    static bool reboot();
    // As reboot(), but powers the machine off.
    static bool powerOff();
};

}  // namespace orvane
