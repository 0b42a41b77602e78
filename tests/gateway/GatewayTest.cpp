#include <dirent.h>
#include <gtest/gtest.h>
#include <orvane/AnyPacket.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "gateway/GatewayProcess.h"
#include "support/Eventually.h"

namespace orvane::test {
namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) out.push_back(static_cast<char>(v));
    return out;
}

std::string frameOf(const std::string& payload) { return AnyPacket::Frame().encode(payload); }

size_t entriesOf(const std::string& dir) {
    size_t count = 0;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d)) count += entry->d_name[0] != '.';
        closedir(d);
    }
    return count;
}

// The device end of a pseudo-terminal: the test plays the serial device.
class Device {
  public:
    Device() {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char name[64] = "";
        if (master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0 &&
            ptsname_r(master, name, sizeof name) == 0) {
            path = name;
        }
    }
    ~Device() { ::close(master); }
    // What the gateway wrote, read until `size` bytes or timeoutMs.
    std::string read(size_t size, int timeoutMs = 3000) {
        return readUntil(master, size, timeoutMs);
    }
    void write(const std::string& data) {
        ASSERT_EQ(::write(master, data.data(), data.size()), ssize_t(data.size()));
    }

    int master = -1;
    std::string path;
};

// orvane-gateway on a free loopback port, started and ready.
class Gateway {
  public:
    explicit Gateway(std::vector<std::string> args) : program(withPath(args)) {
        EXPECT_TRUE(program.waitFor("gateway listening on 127.0.0.1:")) << program.text();
        std::string text = program.text();
        size_t at = text.find("gateway listening on 127.0.0.1:");
        if (at != std::string::npos) port = std::stoi(text.substr(at + 31));
    }
    Program program;
    unsigned short port = 0;

  private:
    static std::vector<std::string> withPath(std::vector<std::string> args) {
        args.insert(args.begin(), {ORVANE_GATEWAY_PATH, "--listen", "127.0.0.1:0"});
        return args;
    }
};

TEST(Gateway, PassesFramesToTheDeviceByteForByteAndItsAnswersBack) {
    Device device;
    ASSERT_FALSE(device.path.empty());
    Gateway gateway({"--serial", device.path, "--baud", "9600", "--timeout", "300"});
    ASSERT_TRUE(gateway.port);
    Client client(gateway.port);
    ASSERT_TRUE(client.connected());
    const std::string request = bytes({0xA5, 0x02, 0x01, 0x02, 0x50, 0x51, 0xA5});  // 01 02
    const std::string answer = frameOf(bytes({0x01, 0xA5, 0xA0}));

    // Whole, split in three writes, and two frames in one write.
    ASSERT_TRUE(client.send(request));
    EXPECT_EQ(device.read(request.size()), request);
    device.write(answer);
    EXPECT_EQ(client.receive(answer.size()), answer);
    for (size_t cut : {1, 4}) {
        ASSERT_TRUE(client.send(request.substr(0, cut)));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(client.send(request.substr(4)));
    EXPECT_EQ(device.read(request.size()), request);
    device.write(answer);
    EXPECT_EQ(client.receive(answer.size()), answer);
    const std::string second = frameOf(bytes({0x01, 0x33}));
    ASSERT_TRUE(client.send(request + second));
    EXPECT_EQ(device.read(request.size()), request);
    device.write(frameOf("\x01one"));
    EXPECT_EQ(device.read(second.size()), second);  // the next only after the first answer
    device.write(frameOf("\x01two"));
    EXPECT_EQ(client.receive(2 * frameOf("\x01one").size()),
              frameOf("\x01one") + frameOf("\x01two"));

    // Refused before the line: a bad CRC, an empty payload, and a frame
    // after junk in the same read (the codec cuts it short). One log line
    // each, no answer, and the connection stays open.
    std::string badCrc = request;
    badCrc[3] = 0x03;
    ASSERT_TRUE(client.send(badCrc));
    EXPECT_TRUE(gateway.program.waitFor("crc error"));
    ASSERT_TRUE(client.send(frameOf("")));
    EXPECT_TRUE(gateway.program.waitFor("empty request from 127.0.0.1:"));
    ASSERT_TRUE(client.send("xy" + request));
    EXPECT_TRUE(gateway.program.waitFor("dirty data:[78 79 ]"));
    EXPECT_EQ(device.read(1, 200), "");
    EXPECT_EQ(client.receive(1, 100), "");

    // A silent device, a device answer that does not decode, and bytes the
    // device sends unasked (discarded, not taken for the next answer).
    ASSERT_TRUE(client.send(request));
    EXPECT_EQ(device.read(request.size()), request);
    EXPECT_EQ(client.receive(7, 2000), frameOf(bytes({0xFF, 0x01})));
    EXPECT_TRUE(gateway.program.waitFor("device did not answer within 300 ms"));
    ASSERT_TRUE(client.send(request));
    EXPECT_EQ(device.read(request.size()), request);
    std::string garbled = answer;
    garbled[2] ^= 0x10;
    device.write(garbled);
    EXPECT_EQ(client.receive(7), frameOf(bytes({0xFF, 0x02})));
    const std::string stale = frameOf("\x01stale");
    device.write(stale);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_TRUE(client.send(request));
    EXPECT_EQ(device.read(request.size()), request);
    device.write(answer);
    EXPECT_EQ(client.receive(answer.size()), answer);
    EXPECT_TRUE(gateway.program.waitFor("discarded " + std::to_string(stale.size()) +
                                        " bytes the device sent unasked"));
    EXPECT_EQ(gateway.program.count("crc error"), 2u);  // the client's and the device's
}

TEST(Gateway, SimulatedDeviceEchoesReportsItsStatusAndRefusesUnknownCommands) {
    Gateway gateway({"--timeout", "1000"});
    Client client(gateway.port);
    ASSERT_TRUE(client.connected());
    const std::string echo = bytes({0x01, 0xA5, 0x00, 0xA0, 0x7F});
    ASSERT_TRUE(client.send(frameOf(echo)));
    EXPECT_EQ(client.receive(frameOf(echo).size()), frameOf(echo));
    ASSERT_TRUE(client.send(frameOf(bytes({0x09, 0x01}))));
    EXPECT_EQ(client.receive(7), frameOf(bytes({0xFF, 0x03})));
    EXPECT_TRUE(gateway.program.waitFor("unknown command 0x09"));

    ASSERT_TRUE(client.send(frameOf(bytes({0x02}))));
    std::string frame = client.receive(1);
    while (frame.size() < 2 || frame.back() != '\xA5') {
        std::string more = client.receive(1);
        if (more.empty()) break;
        frame += more;
    }
    std::string status = AnyPacket::Frame().decode(frame);
    ASSERT_GT(status.size(), 1u);
    EXPECT_EQ(status[0], 0x02);
    for (char c : status.substr(1)) EXPECT_TRUE(isprint(static_cast<unsigned char>(c))) << status;
    EXPECT_NE(status.find("cpu"), std::string::npos) << status;
    EXPECT_NE(status.find("kB"), std::string::npos) << status;
}

TEST(Gateway, ServesConcurrentClientsInArrivalOrderEachWithItsOwnAnswers) {
    Gateway gateway({});
    std::atomic<int> wrong{0}, answered{0};
    std::vector<std::thread> clients;
    for (int c = 0; c < 8; ++c) {
        clients.emplace_back([&, c] {
            Client client(gateway.port);
            for (int i = 0; i < 25; ++i) {
                std::string payload = bytes({0x01, c, i, 0xA5});
                std::string frame = frameOf(payload);
                if (!client.send(frame) || client.receive(frame.size()) != frame) {
                    ++wrong;
                } else {
                    ++answered;
                }
            }
        });
    }
    for (auto& client : clients) client.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(answered.load(), 200);
}

TEST(Gateway, ClientsThatVanishMidFrameCostNothingAndNothingGrows) {
    Gateway gateway({});
    const std::string echo = frameOf(bytes({0x01, 0x42}));
    auto roundTrip = [&] {
        Client client(gateway.port);
        return client.send(echo) && client.receive(echo.size()) == echo;
    };
    ASSERT_TRUE(roundTrip());
    std::string proc = "/proc/" + std::to_string(gateway.program.processId());
    ASSERT_TRUE(
        eventually([&] { return gateway.program.count("disconnected (0 connected)") == 1; }));
    size_t threads = entriesOf(proc + "/task"), fds = entriesOf(proc + "/fd");
    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<Client>> gone;
        for (int i = 0; i < 10; ++i) {
            gone.emplace_back(new Client(gateway.port));
            gone.back()->send(echo.substr(0, 3));  // half a frame
        }
        Client survivor(gateway.port);
        ASSERT_TRUE(survivor.send(echo));
        for (size_t i = 0; i < gone.size(); ++i) gone[i]->close(i % 2 == 0);  // reset or end
        EXPECT_EQ(survivor.receive(echo.size()), echo);
    }
    ASSERT_TRUE(roundTrip());
    // Every one of the 35 clients left one line, the last with none connected.
    auto closed = [&] {
        return gateway.program.count(" disconnected (") +
               gateway.program.count(" dropped after a read error (");
    };
    EXPECT_TRUE(eventually([&] { return closed() == 35; })) << gateway.program.text();
    EXPECT_TRUE(gateway.program.waitFor("(0 connected)", 3000, 2));
    EXPECT_EQ(entriesOf(proc + "/task"), threads);
    EXPECT_EQ(entriesOf(proc + "/fd"), fds);
}

TEST(Gateway, RefusesOneClientTooManyAndClosesSilentOnes) {
    Gateway gateway({"--max-clients", "2", "--idle-timeout", "0.3"});
    Client first(gateway.port), second(gateway.port);
    ASSERT_TRUE(gateway.program.waitFor("(2 connected)"));
    Client third(gateway.port);
    EXPECT_TRUE(third.closedByPeer(2000));
    EXPECT_TRUE(gateway.program.waitFor("refused: 2 clients connected (--max-clients 2)"));
    EXPECT_TRUE(first.closedByPeer(3000));
    EXPECT_TRUE(second.closedByPeer(3000));
    EXPECT_TRUE(gateway.program.waitFor("closed: silent for", 3000, 2));
    EXPECT_EQ(gateway.program.count("refused"), 1u);
}

TEST(Gateway, AnswersSocatAsTheClient) {
    if (system("command -v socat > /dev/null 2>&1") != 0) GTEST_SKIP() << "no socat";
    Gateway gateway({});
    // The request 01 48 49 as printf escapes; stdin stays open a moment so
    // that socat reads the answer before it ends the connection.
    char command[256];
    snprintf(command, sizeof command,
             "(printf '\\245\\003\\001\\110\\111\\246\\126\\245'; sleep 0.5) | "
             "socat -t 1 - TCP:127.0.0.1:%u | od -An -tx1",
             gateway.port);
    FILE* pipe = popen(command, "r");
    ASSERT_NE(pipe, nullptr);
    std::string out;
    char buf[256];
    while (fgets(buf, sizeof buf, pipe)) out += buf;
    EXPECT_EQ(pclose(pipe), 0);
    std::string expected;
    for (unsigned char c : frameOf("\x01HI")) {
        snprintf(buf, sizeof buf, " %02x", c);
        expected += buf;
    }
    EXPECT_EQ(out, expected + "\n");
}

TEST(Gateway, ClientProgramPrintsAnswersAndErrors) {
    Gateway gateway({});
    Program client({ORVANE_GATEWAY_CLIENT_PATH, "127.0.0.1:" + std::to_string(gateway.port),
                    "01 48 69", "0709"});
    EXPECT_EQ(client.wait(5000), 1);  // the second request is an error answer
    EXPECT_TRUE(client.waitFor("< 01 48 69 \n")) << client.text();
    EXPECT_TRUE(client.waitFor("< FF 03  (error: device does not know the command)"))
        << client.text();
}

TEST(Gateway, QuitsCleanlyOnSigtermWithinASecond) {
    Gateway gateway({"--status-interval", "0.05"});
    ASSERT_TRUE(gateway.program.waitFor("status: up"));
    Client client(gateway.port);
    ASSERT_TRUE(gateway.program.waitFor("(1 connected)"));
    auto sent = std::chrono::steady_clock::now();
    ASSERT_EQ(kill(gateway.program.processId(), SIGTERM), 0);
    EXPECT_EQ(gateway.program.wait(3000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - sent, std::chrono::milliseconds(1000));
    std::string log = gateway.program.text();
    EXPECT_NE(log.find("recv signal: 15"), std::string::npos);
    EXPECT_NE(log.find("closed: gateway stopping (0 connected)"), std::string::npos);
    EXPECT_NE(log.find("final status: up"), std::string::npos);
    EXPECT_NE(log.find("gateway stopped"), std::string::npos) << log;
    EXPECT_TRUE(client.closedByPeer(1000));
}

TEST(Gateway, CommandLineGivesHelpAndRefusesBadOptionsWithStatusTwo) {
    Program help({ORVANE_GATEWAY_PATH, "--help"});
    EXPECT_EQ(help.wait(5000), 0);
    for (const char* option : {"--listen", "--serial", "--parity", "--max-clients", "--run-for"}) {
        EXPECT_NE(help.text().find(option), std::string::npos) << option;
    }
    const std::vector<std::vector<std::string>> bad = {
        {"--parity", "mark"}, {"--data-bits", "9"}, {"--baud", "fast"}, {"--listen", "5020"},
        {"--stop-bits", "3"}, {"--bogus"},          {"--flow", "xon"},  {"--max-clients", "0"},
    };
    for (const auto& args : bad) {
        std::vector<std::string> argv = {ORVANE_GATEWAY_PATH};
        argv.insert(argv.end(), args.begin(), args.end());
        Program run(argv);
        EXPECT_EQ(run.wait(5000), 2) << args[0];
        EXPECT_NE(run.text().find("orvane-gateway: "), std::string::npos) << run.text();
    }
    Program quits({ORVANE_GATEWAY_PATH, "--listen", "127.0.0.1:0", "--run-for", "0.2"});
    EXPECT_EQ(quits.wait(5000), 0);
}

}  // namespace
}  // namespace orvane::test
