#include <gtest/gtest.h>
#include <orvane/File.h>
#include <orvane/Socket.h>
#include <sys/ioctl.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "gateway/GatewayProcess.h"
#include "support/Emulator.h"
#include "support/ProcTasks.h"

namespace orvane::test {
namespace {

// The logger on one end of a socat pseudo-terminal pair; the test writes to
// the other end (peer) and reads the logger's files in a temporary dir.
class SerialLoggerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (system("command -v socat > /dev/null 2>&1") != 0) GTEST_SKIP() << "no socat";
        char templ[] = "/tmp/serial-logger-XXXXXX";
        dir = mkdtemp(templ);
        ASSERT_TRUE(startDevice());
    }
    void TearDown() override {
        logger.reset();
        stopDevice();
        if (!dir.empty()) std::filesystem::remove_all(dir);
    }
    bool startDevice() {
        std::string link = ",raw,echo=0,link=" + dir;
        socat.reset(
            new Program({"/usr/bin/env", "socat", "pty" + link + "/dev", "pty" + link + "/peer"}));
        return eventually([&] {
                   return (peer = ::open((dir + "/peer").c_str(), O_WRONLY | O_NOCTTY)) >= 0;
               }) &&
               eventually([&] { return access((dir + "/dev").c_str(), F_OK) == 0; });
    }
    void stopDevice() {
        if (peer >= 0) ::close(peer);
        if (socat) ::kill(socat->processId(), SIGTERM), socat->wait(3000);
    }
    // Starts the logger with `extra` options and waits until it serves the port.
    void start(std::vector<std::string> extra = {}) {
        std::vector<std::string> args{ORVANE_SERIAL_LOGGER_PATH, "--serial", dir + "/dev", "--dir",
                                      dir + "/log"};
        args.insert(args.end(), extra.begin(), extra.end());
        logger.reset(new Program(targetCommand(args)));
        ASSERT_TRUE(logger->waitFor(" open, ")) << logger->text();
        std::string text = logger->text();
        statusPort = std::stoi(text.substr(text.find("status on 127.0.0.1:") + 20));
    }
    // What socat has written so far, all of it to the logger's end; -1 when
    // the kernel keeps no I/O accounting.
    long long relayed() {
        std::ifstream io("/proc/" + std::to_string(socat->processId()) + "/io");
        std::string key;
        long long value = -1;
        while (io >> key >> value)
            if (key == "wchar:") return value;
        return -1;
    }
    // Writes to the device and waits until socat has passed it on, so that
    // what follows (SIGTERM) cannot overtake it; without I/O accounting, until
    // socat has taken it off the peer.
    void send(const std::string& bytes) {
        const long long before = relayed();
        ASSERT_EQ(::write(peer, bytes.data(), bytes.size()), ssize_t(bytes.size()));
        eventually([&] {
            int queued = 0;
            return before >= 0 ? relayed() >= before + ssize_t(bytes.size())
                               : ioctl(peer, TIOCOUTQ, &queued) == 0 && queued == 0;
        });
    }
    // The lines of a log file without their stamps, which must be well formed.
    std::vector<std::string> lines(const std::string& name = "serial.log") {
        static const std::regex stamp("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} .*");
        std::ifstream in(dir + "/log/" + name);
        std::vector<std::string> texts;
        for (std::string line; std::getline(in, line); texts.push_back(line.substr(24)))
            if (!std::regex_match(line, stamp)) ADD_FAILURE() << "no stamp: " << line;
        return texts;
    }
    // One status request and its answer ("" when none came within 3 s).
    std::string ask(const std::string& request) {
        UdpSocket client;
        char answer[256];
        client.open("127.0.0.1", 0);
        client.setConnection("127.0.0.1", static_cast<unsigned short>(statusPort));
        client.writeData(request.data(), int(request.size()));
        return std::string(answer, std::max(0, client.recvData(answer, sizeof answer, 3000000)));
    }

    std::string dir;
    std::unique_ptr<Program> socat, logger;
    int peer = -1, statusPort = 0;
};

// Lines cut at LF or CR LF, the status service, a device that vanishes and
// comes back, and SIGTERM right after a burst: every received line written.
TEST_F(SerialLoggerTest, CutsLinesAnswersStatusOutlivesTheDeviceAndFlushesOnSigterm) {
    start({"--status", "127.0.0.1:0"});
    std::vector<std::string> expected;
    const std::string longLine(4096 + 904, 'x');
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"plain\n", {"plain"}},
        {"crlf\r\n", {"crlf"}},
        {"\n", {""}},
        {"two\nat once\r\n", {"two", "at once"}},
        {"par", {}},
        {"tial\n", {"partial"}},
        {longLine + "\n", {longLine.substr(0, 4096), longLine.substr(4096)}},
    };
    for (const auto& c : cases) {
        send(c.first);
        expected.insert(expected.end(), c.second.begin(), c.second.end());
        EXPECT_TRUE(eventually([&] { return lines() == expected; }))
            << "after '" << c.first.substr(0, 20) << "'";
    }
    EXPECT_EQ(ask("status").rfind("lines=8 uptime=", 0), 0u);
    EXPECT_EQ(ask("status\n").rfind("lines=8 uptime=", 0), 0u);
    EXPECT_EQ(ask("stat").rfind("error", 0), 0u);
    std::string tasks = "/proc/" + std::to_string(logger->processId()) + "/task";
    // qemu-user runs a thread of its own beside the program's.
    EXPECT_LE(procEntries(tasks.c_str()).size(), underEmulator() ? 6u : 5u);

    stopDevice();
    ASSERT_TRUE(logger->waitFor(" is gone"));
    EXPECT_NE(ask("status").find("device=gone"), std::string::npos);
    ASSERT_TRUE(startDevice());
    ASSERT_TRUE(logger->waitFor(" is back"));
    std::string burst;
    for (int i = 0; i < 200; ++i)
        burst += expected.emplace_back("burst " + std::to_string(i)) + "\n";
    send(burst);
    ::kill(logger->processId(), SIGTERM);
    EXPECT_EQ(logger->wait(1000), 0);
    EXPECT_EQ(lines(), expected);
    EXPECT_EQ(logger->count(" is gone"), 1u) << logger->text();
}

TEST_F(SerialLoggerTest, RotatesBeforeTheLimitKeepsTheNewestFilesAndLosesNoLine) {
    start({"--status", "127.0.0.1:0", "--max-bytes", "4121", "--keep", "2"});
    const int count = 150;  // 125 bytes a line: 32 lines a file, five files written
    for (int i = 0; i < count; ++i) send("line " + std::to_string(i) + std::string(94, '.') + "\n");
    ASSERT_TRUE(eventually([&] {
        std::vector<std::string> last = lines();
        return !last.empty() && last.back().rfind("line 149.", 0) == 0;
    }));
    std::vector<std::string> all;
    for (const char* name : {"serial.log.2", "serial.log.1", "serial.log"}) {
        EXPECT_LE(File::getSize(dir + "/log/" + name), 4121u) << name;
        for (const std::string& line : lines(name)) all.push_back(line);
    }
    EXPECT_FALSE(File::exists(dir + "/log/serial.log.3"));
    ASSERT_EQ(all.size(), 32u * 2 + 150 % 32);  // the oldest files were dropped
    for (size_t i = 0; i < all.size(); ++i)
        EXPECT_EQ(all[i].rfind("line " + std::to_string(count - all.size() + i) + ".", 0), 0u);
}

TEST_F(SerialLoggerTest, RefusesBadCommandLinesAndEndsAfterRunFor) {
    std::ofstream(dir + "/file") << "a file, not a directory";
    const std::string serial = dir + "/dev";
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{"--serial", serial, "--dir", dir, "--baud", "fast"}, 2, "baud"},
        {{"--dir", dir}, 2, "serial"},
        {{"--serial", serial, "--dir", dir + "/file/log"}, 1, dir + "/file/log"},
        {{"--help"}, 0, "--max-bytes"},
        {{"--serial", dir + "/none", "--dir", dir, "--status", "127.0.0.1:0", "--run-for", "0.2"},
         0,
         "not there yet"},
    };
    for (const auto& [args, status, says] : cases) {
        std::vector<std::string> argv{ORVANE_SERIAL_LOGGER_PATH};
        argv.insert(argv.end(), args.begin(), args.end());
        Program run(targetCommand(argv));
        EXPECT_EQ(run.wait(5000), status) << run.text();
        EXPECT_NE(run.text().find(says), std::string::npos) << run.text();
    }
}

}  // namespace
}  // namespace orvane::test
