#include <gtest/gtest.h>
#include <orvane/System.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "support/ChildProcess.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/PrivateMount.h"

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define RUNNING_ON_VALGRIND 0
#endif

extern char** environ;

namespace orvane {
namespace {

// What an independent tool prints, without its line end.
std::string toolOutput(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return out;
    char buf[256];
    while (fgets(buf, sizeof buf, pipe) != nullptr) out += buf;
    pclose(pipe);
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
}

std::string fileText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Every call must fail and log exactly `line` (a static operation's line).
void expectOneLineEach(const std::vector<std::pair<std::function<bool()>, std::string>>& cases) {
    for (auto& c : cases) {
        auto lines = test::LogCapture::get().linesDuring([&] { EXPECT_FALSE(c.first()); });
        EXPECT_EQ(lines, std::vector<std::string>{"<E>DATE " + c.second});
    }
}

TEST(System, ReportsTheSameFactsAsTheSystemTools) {
    EXPECT_EQ(System::getHostName(), toolOutput("uname -n"));
    EXPECT_EQ(std::to_string(System::getCpuCount()), toolOutput("nproc"));
    EXPECT_EQ(std::to_string(System::getPageSize()), toolOutput("getconf PAGESIZE"));
    EXPECT_EQ(System::getProcessId(), static_cast<int>(getpid()));
    std::string comm = fileText("/proc/self/comm");
    EXPECT_EQ(System::getProcessName() + "\n", comm);
    double uptime = std::stod(fileText("/proc/uptime"));
    EXPECT_NEAR(System::getUptimeMs() / 1000.0, uptime, 2.0);
    double one = -1, five = -1, fifteen = -1;
    ASSERT_TRUE(System::getLoadAverage(&one, &five, &fifteen));
    std::istringstream loads(fileText("/proc/loadavg"));
    double fileOne = 0, fileFive = 0, fileFifteen = 0;
    loads >> fileOne >> fileFive >> fileFifteen;
    EXPECT_NEAR(one, fileOne, 0.5);
    EXPECT_NEAR(five, fileFive, 0.5);
    EXPECT_NEAR(fifteen, fileFifteen, 0.5);
    EXPECT_TRUE(System::getLoadAverage(nullptr, nullptr, nullptr));
}

TEST(System, RenamesTheProcessAsPsShowsIt) {
    EXPECT_TRUE(test::succeedsInChild([] {
        std::string pid = std::to_string(getpid());
        return System::setProcessName("gateway-main-thread") &&
               System::getProcessName() == "gateway-main-th" &&
               fileText("/proc/" + pid + "/comm") == "gateway-main-th\n" &&
               System::findProcesses("gateway-main-th") == std::vector<int>{getpid()};
    }));
}

TEST(System, RunsCommandsWithTheirStatusAndOutput) {
    signal(SIGPIPE, SIG_IGN);  // what every socket send does; the command must not inherit it
    struct Case {
        const char* command;
        int status;
        const char* output;
    };
    const Case cases[] = {
        {"echo out; echo err >&2", 0, "out\nerr\n"},
        {"exit 3", 3, ""},
        {"cat", 0, ""},  // stdin is /dev/null
        {"kill -TERM $$", 128 + SIGTERM, ""},
        {"kill -PIPE $$", 128 + SIGPIPE, ""},
        {"printf '%s' \"a  b\"", 0, "a  b"},
    };
    for (auto& c : cases) {
        std::string output = "stale";
        EXPECT_EQ(System::runCommand(c.command, 5000000, &output), c.status) << c.command;
        EXPECT_EQ(output, c.output) << c.command;
    }
    EXPECT_EQ(System::runCommand("true", -1), 0);
    std::string big;
    EXPECT_EQ(System::runCommand("head -c 3000000 /dev/zero", 10000000, &big), 0);
    EXPECT_EQ(big.size(), 1u << 20);  // the rest was read and dropped, so the command ended
}

// The command's background process holds the output open; both are killed.
TEST(System, KillsTheWholeCommandWhenItsTimeRunsOut) {
    auto& capture = test::LogCapture::get();
    std::string output;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(System::runCommand("sleep 30 & echo $!; wait", 100000, &output), -2);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(capture.waitLine("still running"),
              "<E>DATE [runCommand,L#] command 'sleep 30 & echo $!; wait' still running after "
              "100000 us: killed");
    ASSERT_FALSE(output.empty());
    std::string stat = "/proc/" + std::to_string(std::stoi(output)) + "/stat";
    // Gone, or a zombie waiting for a reaper that is not this process.
    EXPECT_TRUE(test::eventually([&] {
        std::string text = fileText(stat);
        return text.empty() || text.find(") Z") != std::string::npos;
    }));
}

TEST(System, FindsAndSignalsAProcessByName) {
    const char* argv[] = {"sleep", "30", nullptr};
    pid_t child = -1;
    ASSERT_EQ(
        posix_spawn(&child, "/bin/sleep", nullptr, nullptr, const_cast<char**>(argv), environ), 0);
    auto found = System::findProcesses("sleep");
    EXPECT_NE(std::find(found.begin(), found.end(), child), found.end());
    EXPECT_TRUE(System::findProcesses("no-such-program-here").empty());
    EXPECT_TRUE(System::sendSignal(child, 0));
    EXPECT_TRUE(System::sendSignal(child, SIGTERM));
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
}

TEST(System, ChangesResourceLimitsAsTheKernelShowsThem) {
    if (RUNNING_ON_VALGRIND) {
        GTEST_SKIP() << "valgrind keeps descriptors of its own and shows the program a smaller "
                        "open-files limit than /proc/self/limits";
    }
    EXPECT_TRUE(test::succeedsInChild([] {
        long long soft = 0, hard = 0;
        if (!System::getResourceLimit(RLIMIT_NOFILE, &soft, &hard)) return false;
        if (!System::setResourceLimit(RLIMIT_NOFILE, 200, hard)) return false;
        if (!System::setResourceLimit(RLIMIT_CORE, -1, -1) && getuid() == 0) return false;
        long long now = 0;
        std::string limits = fileText("/proc/self/limits");
        return System::getResourceLimit(RLIMIT_NOFILE, &now, nullptr) && now == 200 &&
               limits.find("Max open files            200 ") != std::string::npos;
    }));
}

TEST(System, RejectsBadInputWithOneLineEach) {
    long long soft = 0;
    std::string output;
    expectOneLineEach({
        {[] { return System::sendSignal(0, SIGTERM); },
         "[sendSignal,L#] refused pid:0 (process groups and -1 are not signalled)"},
        {[] { return System::sendSignal(-1, SIGKILL); },
         "[sendSignal,L#] refused pid:-1 (process groups and -1 are not signalled)"},
        {[] { return System::sendSignal(getpid(), 999); },
         "[sendSignal,L#] kill(" + std::to_string(getpid()) + ", 999) error:Invalid argument"},
        {[&] { return System::getResourceLimit(999, &soft, nullptr); },
         "[getResourceLimit,L#] getrlimit(999) error:Invalid argument"},
        {[] { return System::setResourceLimit(RLIMIT_NOFILE, 20, 10); },
         "[setResourceLimit,L#] setrlimit(7, 20, 10) error:Invalid argument"},
        {[] { return System::setProcessName(""); }, "[setProcessName,L#] process name is empty"},
        {[&] { return System::runCommand("", 0, &output) != -1; },
         "[runCommand,L#] command is empty"},
        {[] { return !System::findProcesses("").empty(); },
         "[findProcesses,L#] process name is empty"},
    });
}

// In a child that gave up root for good: checked before anything is tried.
void restartsWithoutPrivilege() {
    if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) _exit(4);
    std::string status = fileText("/proc/self/status");
    size_t at = status.find("CapEff:");
    bool dropped = getuid() == 65534 && geteuid() == 65534 && setresuid(0, 0, 0) != 0 &&
                   at != std::string::npos && std::stoull(status.substr(at + 7), nullptr, 16) == 0;
    if (!dropped) _exit(5);
    expectOneLineEach({
        {[] { return System::reboot(); },
         "[reboot,L#] not allowed: the process lacks CAP_SYS_BOOT"},
        {[] { return System::powerOff(); },
         "[powerOff,L#] not allowed: the process lacks CAP_SYS_BOOT"},
    });
    test::exitWithChecks();
}

TEST(SystemDeathTest, RefusesToRestartWithoutPrivilege) {
    if (getuid() != 0) GTEST_SKIP() << "needs root to start a child that drops it";
    EXPECT_EXIT(restartsWithoutPrivilege(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
