#include <dirent.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <orvane/System.h>
#include <orvane/Time.h>
#include <orvane/UniqueFd.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/reboot.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "io/SmallFile.h"
#include "log/LogLine.h"
#include "thread/TaskId.h"

extern char** environ;

namespace orvane {

namespace {

constexpr size_t kOutputKept = 1u << 20;

// The exit status as runCommand reports it.
int exitCode(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

// Whether the calling thread holds `capability` in its effective set.
bool hasCapability(int capability) {
    std::string status;
    if (detail::readSmallFile("/proc/self/status", &status) != 0) return false;
    size_t at = status.find("CapEff:");
    if (at == std::string::npos) return false;
    unsigned long long bits = strtoull(status.c_str() + at + 7, nullptr, 16);
    return ((bits >> capability) & 1) != 0;
}

rlim_t toRlim(long long value) { return value < 0 ? RLIM_INFINITY : static_cast<rlim_t>(value); }
long long fromRlim(rlim_t value) {
    return value == RLIM_INFINITY ? -1 : static_cast<long long>(value);
}

// posix_spawn's setup for runCommand: output into `out`, stdin from
// /dev/null, a process group of its own, default signal handling.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;

    explicit SpawnSetup(int out) {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, out, 1);
        posix_spawn_file_actions_adddup2(&actions, out, 2);
        posix_spawnattr_init(&attr);
        sigset_t none;
        sigemptyset(&none);
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attr, &none);
        posix_spawnattr_setsigdefault(&attr, &all);
        posix_spawnattr_setpgroup(&attr, 0);
        posix_spawnattr_setflags(
            &attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attr);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
};

// Reads the command's output until end of file or the deadline (-1: none).
// False when the deadline passed first.
bool drainOutput(int fd, long long deadlineUs, std::string* output) {
    char buf[4096];
    for (;;) {
        int waitMs = -1;
        if (deadlineUs >= 0) {
            long long leftUs = deadlineUs - Time::fromMono().toMicroSec();
            if (leftUs <= 0) return false;
            waitMs = static_cast<int>(std::min<long long>((leftUs + 999) / 1000, 60000));
        }
        pollfd entry{fd, POLLIN, 0};
        int n = poll(&entry, 1, waitMs);
        if (n < 0 && errno != EINTR) return true;  // cannot wait further: treat as ended
        if (n <= 0) continue;
        ssize_t got = read(fd, buf, sizeof buf);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return true;
        if (output != nullptr && output->size() < kOutputKept) {
            output->append(buf, std::min(static_cast<size_t>(got), kOutputKept - output->size()));
        }
    }
}

// Waits for `child` until the deadline (-1: none); its status, -1 on an
// error (errno-style in *err), -2 when the deadline passed.
int reap(pid_t child, long long deadlineUs, int* err) {
    for (;;) {
        int status = 0;
        pid_t done = waitpid(child, &status, deadlineUs < 0 ? 0 : WNOHANG);
        if (done == child) return exitCode(status);
        if (done < 0 && errno != EINTR) {
            *err = errno;
            return -1;
        }
        if (deadlineUs >= 0 && Time::fromMono().toMicroSec() >= deadlineUs) return -2;
        if (done == 0) {
            timespec pause{0, 1000 * 1000};
            nanosleep(&pause, nullptr);
        }
    }
}

// A process's name from its /proc "comm" file, without the line end; 0 or
// an errno value.
int readComm(const std::string& path, std::string* name) {
    int err = detail::readSmallFile(path, name);
    if (err == 0 && !name->empty() && name->back() == '\n') name->pop_back();
    return err;
}

// The file name part of the first NUL-terminated word of a cmdline file.
std::string programName(const std::string& cmdline) {
    std::string first = cmdline.substr(0, cmdline.find('\0'));
    size_t slash = first.rfind('/');
    return slash == std::string::npos ? first : first.substr(slash + 1);
}

bool restart(int how, const char* method) {
    if (!hasCapability(CAP_SYS_BOOT)) {
        ORVANE_SERROR_IN(method, "not allowed: the process lacks CAP_SYS_BOOT");
        return false;
    }
    sync();
    ::reboot(how);
    int err = errno;
    ORVANE_SERROR_IN(method, "reboot error:%s", strerror(err));
    return false;
}

}  // namespace

int System::getTaskId(unsigned int* pthreadId) {
    if (pthreadId != nullptr) {
        *pthreadId = static_cast<unsigned int>(pthread_self());
    }
    return detail::currentTaskId();
}

bool System::execute(const std::string& command) {
    // posix_spawn instead of system(): it does not touch the caller's signal
    // dispositions, so other threads keep their SIGINT and SIGCHLD handling.
    const char* argv[] = {"sh", "-c", command.c_str(), nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ) !=
        0) {
        return false;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string System::getHostName() {
    utsname names;
    if (uname(&names) != 0) {
        int err = errno;
        ORVANE_SERROR("uname error:%s", strerror(err));
        return "";
    }
    return names.nodename;
}

long long System::getUptimeMs() {
    timespec since;
    if (clock_gettime(CLOCK_BOOTTIME, &since) != 0) {
        int err = errno;
        ORVANE_SERROR("clock_gettime error:%s", strerror(err));
        return -1;
    }
    return static_cast<long long>(since.tv_sec) * 1000 + since.tv_nsec / 1000000;
}

bool System::getLoadAverage(double* one, double* five, double* fifteen) {
    double loads[3];
    if (getloadavg(loads, 3) != 3) {
        ORVANE_SERROR("getloadavg error");
        return false;
    }
    if (one != nullptr) *one = loads[0];
    if (five != nullptr) *five = loads[1];
    if (fifteen != nullptr) *fifteen = loads[2];
    return true;
}

int System::getCpuCount() {
    long count = sysconf(_SC_NPROCESSORS_ONLN);
    if (count < 1) {
        int err = errno;
        ORVANE_SERROR("sysconf error:%s", strerror(err));
        return -1;
    }
    return static_cast<int>(count);
}

int System::getPageSize() { return static_cast<int>(sysconf(_SC_PAGESIZE)); }

int System::getProcessId() { return static_cast<int>(getpid()); }

std::string System::getProcessName() {
    std::string name;
    int err = readComm("/proc/self/comm", &name);
    if (err != 0) {
        ORVANE_SERROR("read /proc/self/comm error:%s", strerror(err));
        return "";
    }
    return name;
}

bool System::setProcessName(const std::string& name) {
    if (name.empty()) {
        ORVANE_SERROR("process name is empty");
        return false;
    }
    std::string cut = name.substr(0, 15);
    if (prctl(PR_SET_NAME, cut.c_str(), 0, 0, 0) != 0) {
        int err = errno;
        ORVANE_SERROR("prctl(PR_SET_NAME, %s) error:%s", cut.c_str(), strerror(err));
        return false;
    }
    return true;
}

int System::runCommand(const std::string& command, int timeoutUs, std::string* output) {
    if (output != nullptr) output->clear();
    if (command.empty()) {
        ORVANE_SERROR("command is empty");
        return -1;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        int err = errno;
        ORVANE_SERROR("pipe error:%s", strerror(err));
        return -1;
    }
    UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    long long deadlineUs = timeoutUs < 0 ? -1 : Time::fromMono().toMicroSec() + timeoutUs;
    pid_t child = -1;
    {
        SpawnSetup setup(writeEnd.get());
        const char* argv[] = {"sh", "-c", command.c_str(), nullptr};
        int err = posix_spawn(&child, "/bin/sh", &setup.actions, &setup.attr,
                              const_cast<char* const*>(argv), environ);
        if (err != 0) {
            ORVANE_SERROR("spawn of '%s' error:%s", command.c_str(), strerror(err));
            return -1;
        }
    }
    writeEnd.reset();  // the end of file comes when the command's last writer exits
    bool ended = drainOutput(readEnd.get(), deadlineUs, output);
    int err = 0;
    int status = ended ? reap(child, deadlineUs, &err) : -2;
    if (status == -2) {
        kill(-child, SIGKILL);
        reap(child, -1, &err);
        ORVANE_SERROR("command '%s' still running after %d us: killed", command.c_str(), timeoutUs);
        return -2;
    }
    if (status == -1) {
        ORVANE_SERROR("waitpid(%d) error:%s", static_cast<int>(child), strerror(err));
    }
    return status;
}

std::vector<int> System::findProcesses(const std::string& name) {
    std::vector<int> found;
    if (name.empty()) {
        ORVANE_SERROR("process name is empty");
        return found;
    }
    DIR* proc = opendir("/proc");
    if (proc == nullptr) {
        int err = errno;
        ORVANE_SERROR("opendir /proc error:%s", strerror(err));
        return found;
    }
    std::string shortName = name.substr(0, 15);
    while (dirent* entry = readdir(proc)) {
        char* end = nullptr;
        long pid = strtol(entry->d_name, &end, 10);
        if (pid <= 0 || *end != '\0') continue;
        std::string dir = std::string("/proc/") + entry->d_name;
        std::string comm;
        std::string cmdline;
        // A process may end while it is looked at: a missing file only skips it.
        if (readComm(dir + "/comm", &comm) != 0) continue;
        bool match = comm == shortName && (name.size() <= 15 || comm.size() < 15);
        if (!match && detail::readSmallFile(dir + "/cmdline", &cmdline) == 0) {
            match = programName(cmdline) == name;
        }
        if (match) found.push_back(static_cast<int>(pid));
    }
    closedir(proc);
    std::sort(found.begin(), found.end());
    return found;
}

bool System::sendSignal(int pid, int signal) {
    if (pid <= 0) {
        ORVANE_SERROR("refused pid:%d (process groups and -1 are not signalled)", pid);
        return false;
    }
    if (kill(pid, signal) != 0) {
        int err = errno;
        ORVANE_SERROR("kill(%d, %d) error:%s", pid, signal, strerror(err));
        return false;
    }
    return true;
}

bool System::getResourceLimit(int resource, long long* soft, long long* hard) {
    rlimit limit;
    if (getrlimit(static_cast<__rlimit_resource_t>(resource), &limit) != 0) {
        int err = errno;
        ORVANE_SERROR("getrlimit(%d) error:%s", resource, strerror(err));
        return false;
    }
    if (soft != nullptr) *soft = fromRlim(limit.rlim_cur);
    if (hard != nullptr) *hard = fromRlim(limit.rlim_max);
    return true;
}

bool System::setResourceLimit(int resource, long long soft, long long hard) {
    rlimit limit{toRlim(soft), toRlim(hard)};
    if (setrlimit(static_cast<__rlimit_resource_t>(resource), &limit) != 0) {
        int err = errno;
        ORVANE_SERROR("setrlimit(%d, %lld, %lld) error:%s", resource, soft, hard, strerror(err));
        return false;
    }
    return true;
}

bool System::reboot() { return restart(RB_AUTOBOOT, __func__); }

bool System::powerOff() { return restart(RB_POWER_OFF, __func__); }

}  // namespace orvane
