#include <orvane/System.h>
#include <orvane/Time.h>
#include <signal.h>
#include <sys/resource.h>

#include "support/PrivateMount.h"
#include "support/Refusal.h"
#include "support/ToolRun.h"

namespace orvane {
namespace {

using test::toolOutput;

TEST(System, ReportsAndChangesTheSameFactsAsTheSystemToolsShow) {
    EXPECT_EQ(System::getHostName() + "\n", toolOutput("uname -n"));
    EXPECT_EQ(std::to_string(System::getCpuCount()) + "\n", toolOutput("nproc"));
    EXPECT_NEAR(System::getUptimeMs() / 1000.0, std::stod(toolOutput("cat /proc/uptime")), 2.0);
    long long soft = 0, hard = 0;
    ASSERT_TRUE(System::getResourceLimit(RLIMIT_CORE, &soft, &hard) &&
                System::setResourceLimit(RLIMIT_CORE, 4096, hard));
    EXPECT_EQ(toolOutput("awk '/core file/ {print $5}' /proc/self/limits"), "4096\n");  // inherited
    EXPECT_TRUE(System::setResourceLimit(RLIMIT_CORE, soft, hard));
}

// In a child, so the test program keeps its name.
TEST(System, RenamesTheProcessAndFindsAndSignalsItByThatName) {
    EXPECT_TRUE(test::succeedsInChild([] {
        std::string pid = std::to_string(getpid());
        return System::setProcessName("gateway-main-thread") &&
               System::getProcessName() == "gateway-main-th" &&
               toolOutput("cat /proc/" + pid + "/comm") == "gateway-main-th\n" &&
               System::findProcesses("gateway-main-th") == std::vector<int>{getpid()} &&
               System::findProcesses("no-such-program-here").empty() &&
               System::sendSignal(getpid(), 0);
    }));
    test::expectRefusal([] { return System::sendSignal(-1, SIGKILL); },
                        "<E>DATE [sendSignal,L#] refused pid:-1 (process groups and -1 are not "
                        "signalled)");
}

// A command that outlives its time is killed with its background process,
// which holds the output open.
TEST(System, RunsCommandsWithTheirStatusAndOutputAndKillsThemWhenTimeRunsOut) {
    signal(SIGPIPE, SIG_IGN);  // what every socket send does; the command must not inherit it
    const std::tuple<const char*, int, const char*> cases[] = {
        {"echo out; echo err >&2", 0, "out\nerr\n"},
        {"cat; exit 3", 3, ""},  // stdin is /dev/null
        {"kill -PIPE $$", 128 + SIGPIPE, ""},
    };
    for (const auto& [command, status, expected] : cases) {
        std::string output = "stale";
        EXPECT_EQ(System::runCommand(command, 5000000, &output), status) << command;
        EXPECT_EQ(output, expected) << command;
    }
    std::string output;  // 1 MiB kept, the rest read and dropped, so the command ended
    EXPECT_TRUE(System::runCommand("head -c 3000000 /dev/zero", -1, &output) == 0 &&
                output.size() == 1u << 20);
    test::expectRefusal(
        [&] { return System::runCommand("sleep 30 & echo $!; wait", 500000, &output) != -2; },
        "<E>DATE [runCommand,L#] command 'sleep 30 & echo $!; wait' still running after 500000 "
        "us: killed");
    // Gone, or a zombie waiting for a reaper that is not this process.
    EXPECT_TRUE(test::eventually([&] {
        std::string text = toolOutput("cut -d' ' -f3 /proc/" + std::to_string(std::stoi(output)) +
                                      "/stat 2>/dev/null");
        return text.empty() || text == "Z\n";
    }));
}

// In a child that gave up root for good (checked before anything is tried),
// with no timedatectl on PATH: every privileged call is refused.
void refusedWithoutPrivilege() {
    if (!test::dropPrivileges() ||
        toolOutput("grep CapEff /proc/self/status") != "CapEff:\t0000000000000000\n") {
        _exit(5);  // still privileged: reboot() must not be tried
    }
    test::expectRefusal(&System::reboot,
                        "<E>DATE [reboot,L#] not allowed: the process lacks CAP_SYS_BOOT");
    test::expectRefusal([] { return DateTime::setDateTime(DateTime(1960, 1, 1, 0, 0, 0)); },
                        "<E>DATE [setDateTime,L#] @DateTime, make time error: Success !");
    setenv("PATH", "/nonexistent", 1);
    Time t(1704067200L, 0L);
    // The current zone: "set-ntp; export" ends with export's success, then set-time fails.
    test::expectRefusal([&] { return DateTime::setDateTime(t, ""); },
                        "<E>DATE [setDateTime,L#] @DataTime, exec cmd[timedatectl set-time '" +
                            DateTime(t).toString() + "'] error!");
    // A zone name the shell would interpret is refused before anything runs.
    std::string owned = test::tempPath("owned");
    EXPECT_FALSE(DateTime::setDateTime(t, "UTC;/usr/bin/touch " + owned));
    EXPECT_NE(unlink(owned.c_str()), 0);
    test::exitWithChecks();
}

TEST(SystemDeathTest, PrivilegedCallsAreRefusedWithoutPrivilege) {
    if (getuid() != 0) GTEST_SKIP() << "needs root to start a child that drops it";
    EXPECT_EXIT(refusedWithoutPrivilege(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
