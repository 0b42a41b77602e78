#include <gtest/gtest.h>
#include <orvane/SocketCAN.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/LogCapture.h"
#include "support/ToolRun.h"

// SocketCAN against the kernel's vcan driver and the can-utils tools. The
// virtual machine's /init brings vcan0 up.
namespace orvane {
namespace {

// open() looks the interface up with the name's last character cut off.
const char* const kBus = "vcan0x";

struct Frame {
    unsigned int id;
    std::string data;
    unsigned char format;  // 1 extended
    unsigned int canid;    // the identifier word on the bus
    std::string candump;   // the frame as candump -L prints it
};

const std::vector<Frame> kFrames = {
    {0x123, "\x01\x02\x03", 0, 0x123, "123#010203"},
    {0x7FF, "ABCDEFGH", 0, 0x7FF, "7FF#4142434445464748"},
    {0x000, "", 0, 0x000, "000#"},
    {0x1ABCDE, "\xDE\xAD", 1, 0x801ABCDE, "001ABCDE#DEAD"},
    {0x1FFFFFFF, "z", 1, 0x9FFFFFFF, "1FFFFFFF#7A"},
};

std::string payload(const CANFrame& frame) { return std::string(frame.data(), frame.dataLen()); }

// The frames candump printed (its -L format, "(1700000000.000000) vcan0
// 123#010203", reduced to "123#010203"), up to the end of its output.
std::vector<std::string> framesShown(FILE* dump) {
    std::vector<std::string> shown;
    char line[256];
    while (fgets(line, sizeof line, dump) != nullptr) {
        std::string text(line);
        size_t at = text.find(" vcan0 ");
        if (at == std::string::npos) continue;
        shown.push_back(text.substr(at + 7, text.find('\n') - at - 7));
    }
    return shown;
}

TEST(KernelSocketCAN, OpensOnlyTheInterfaceItsCutNameNames) {
    struct Case {
        const char* name;
        bool opens;
    } cases[] = {{"vcan0x", true}, {"vcan00", true}, {"vcan0", false}, {"vcan9x", false}};
    for (const Case& c : cases) {
        SocketCAN can;
        EXPECT_EQ(can.open(c.name, 0), c.opens) << c.name;
    }
}

TEST(KernelSocketCAN, CarriesStandardAndExtendedFramesUnchanged) {
    SocketCAN sender, receiver;
    ASSERT_TRUE(sender.open(kBus, 0));
    ASSERT_TRUE(receiver.open(kBus, 0));
    for (const Frame& f : kFrames) {
        CANFrame sent(f.id, f.data.data(), static_cast<unsigned char>(f.data.size()), f.format);
        ASSERT_EQ(sender.sendFrame(sent, 1000000), 0) << f.candump;
        CANFrame got;
        ASSERT_EQ(receiver.recvFrame(&got, 1000000), 0) << f.candump;
        EXPECT_EQ(got.canid(), f.canid) << f.candump;
        EXPECT_EQ(payload(got), f.data) << f.candump;
        // The sender does not hear its own frame.
        EXPECT_EQ(sender.recvFrame(&got, 0), -2) << f.candump;
    }
}

TEST(KernelSocketCAN, ReadsFramesThatCansendPuts) {
    SocketCAN receiver;
    ASSERT_TRUE(receiver.open(kBus, 0));
    for (const Frame& f : kFrames) {
        ASSERT_EQ(std::system(("cansend vcan0 " + f.candump).c_str()), 0) << f.candump;
        CANFrame got;
        ASSERT_EQ(receiver.recvFrame(&got, 1000000), 0) << f.candump;
        EXPECT_EQ(got.canid(), f.canid) << f.candump;
        EXPECT_EQ(payload(got), f.data) << f.candump;
    }
}

TEST(KernelSocketCAN, SendsFramesThatCandumpShows) {
    // candump ends 300 ms after the last frame it saw.
    FILE* dump = popen("candump -L -T 300 vcan0", "r");
    ASSERT_NE(dump, nullptr);
    SocketCAN sender;
    ASSERT_TRUE(sender.open(kBus, 0));
    // candump hears the bus once it has started: a probe frame every 50 ms
    // until it prints one.
    const CANFrame probe(0x7EE, "p", 1);
    pollfd ready{fileno(dump), POLLIN, 0};
    int probes = 0;
    for (; probes < 100 && poll(&ready, 1, 0) == 0; ++probes) {
        ASSERT_EQ(sender.sendFrame(probe, 1000000), 0);
        poll(&ready, 1, 50);
    }
    for (const Frame& f : kFrames) {
        CANFrame sent(f.id, f.data.data(), static_cast<unsigned char>(f.data.size()), f.format);
        EXPECT_EQ(sender.sendFrame(sent, 1000000), 0) << f.candump;
    }
    std::vector<std::string> shown = framesShown(dump);
    pclose(dump);
    std::vector<std::string> expected(kFrames.size());
    std::transform(kFrames.begin(), kFrames.end(), expected.begin(),
                   [](const Frame& f) { return f.candump; });
    shown.erase(std::remove(shown.begin(), shown.end(), "7EE#70"), shown.end());
    EXPECT_EQ(shown, expected) << probes << " probes";
}

TEST(KernelSocketCAN, WaitsForFramesAsLongAsItIsTold) {
    SocketCAN receiver;
    ASSERT_TRUE(receiver.open(kBus, 0));
    for (int timeoutUs : {0, 20000, 150000}) {
        CANFrame got;
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(receiver.recvFrame(&got, timeoutUs), -2) << timeoutUs;
        auto waitedUs = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::steady_clock::now() - start)
                            .count();
        EXPECT_GE(waitedUs, timeoutUs);
    }
}

TEST(KernelSocketCAN, ReadsOneFramePerCallWhateverTheBufferSize) {
    SocketCAN sender, receiver;
    ASSERT_TRUE(sender.open(kBus, 0));
    ASSERT_TRUE(receiver.open(kBus, 0));
    // A write of two frames at once is refused by the kernel: one frame per write.
    CANFrame two[2] = {CANFrame(0x10, "a", 1), CANFrame(0x11, "b", 1)};
    std::vector<std::string> lines = test::LogCapture::get().linesDuring([&] {
        EXPECT_EQ(sender.sendData(reinterpret_cast<const char*>(two), sizeof two, 1000000), -1);
    });
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("Invalid argument"), std::string::npos) << lines[0];
    EXPECT_EQ(sender.sendFrame(two[0], 1000000), 0);
    EXPECT_EQ(sender.sendFrame(two[1], 1000000), 0);
    char buf[64];
    EXPECT_EQ(receiver.recvData(buf, sizeof buf, 1000000), 16);
    EXPECT_EQ(reinterpret_cast<CANFrame*>(buf)->canid(), 0x10u);
    EXPECT_EQ(receiver.recvData(buf, sizeof buf, 1000000), 16);
    EXPECT_EQ(reinterpret_cast<CANFrame*>(buf)->canid(), 0x11u);
    EXPECT_EQ(receiver.recvData(buf, sizeof buf, 0), -2);
}

TEST(KernelSocketCAN, ReportsAnInterfaceTakenDown) {
    SocketCAN sender, receiver;
    ASSERT_TRUE(sender.open(kBus, 0));
    ASSERT_TRUE(receiver.open(kBus, 0));
    ASSERT_EQ(std::system("/usr/sbin/ip link set vcan0 down"), 0);
    int sent = 0, received = 0;
    std::vector<std::string> lines = test::LogCapture::get().linesDuring([&] {
        sent = sender.sendFrame(CANFrame(0x123, "x", 1), 100000);
        CANFrame got;
        received = receiver.recvFrame(&got, 100000);
    });
    ASSERT_EQ(std::system("/usr/sbin/ip link set vcan0 up"), 0);
    EXPECT_EQ(sent, -1);
    EXPECT_EQ(received, -1);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("[SocketCAN::sendData,L#]"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("Network is down"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find("[SocketCAN::recvData,L#]"), std::string::npos) << lines[1];
    EXPECT_NE(lines[1].find("Network is down"), std::string::npos) << lines[1];
    // Up again, the same sockets carry frames.
    EXPECT_EQ(sender.sendFrame(CANFrame(0x124, "y", 1), 1000000), 0);
    CANFrame got;
    EXPECT_EQ(receiver.recvFrame(&got, 1000000), 0);
    EXPECT_EQ(got.canid(), 0x124u);
}

}  // namespace
}  // namespace orvane
