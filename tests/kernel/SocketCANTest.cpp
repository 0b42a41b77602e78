#include <orvane/SocketCAN.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <regex>

#include "support/LogCapture.h"

// SocketCAN against the kernel's vcan driver and the can-utils tools. The
// virtual machine's /init brings vcan0 up.
namespace orvane {
namespace {

// open() looks the interface up with the name's last character cut off.
const char* const kBus = "vcan0x";

struct Frame {
    unsigned int id;
    std::string data;
    unsigned int canid;   // the identifier word on the bus
    std::string candump;  // the frame as candump -L and cansend write it
};

const std::vector<Frame> kFrames = {
    {0x123, "\x01\x02\x03", 0x123, "123#010203"},
    {0x7FF, "ABCDEFGH", 0x7FF, "7FF#4142434445464748"},
    {0x000, "", 0x000, "000#"},
    {0x1FFFFFFF, "z", 0x9FFFFFFF, "1FFFFFFF#7A"},  // extended: beyond 11 bits
};

TEST(KernelSocketCAN, OpensOnlyTheInterfaceItsCutNameNames) {
    for (const char* name : {"vcan0x", "vcan00"}) EXPECT_TRUE(SocketCAN().open(name, 0)) << name;
    for (const char* name : {"vcan0", "vcan9x"}) EXPECT_FALSE(SocketCAN().open(name, 0)) << name;
}

// One socket reads what cansend puts on the bus and sends what candump shows.
TEST(KernelSocketCAN, ReadsFramesThatCansendPutsAndSendsFramesThatCandumpShows) {
    SocketCAN can;
    ASSERT_TRUE(can.open(kBus, 0));
    for (const Frame& f : kFrames) {
        ASSERT_EQ(std::system(("cansend vcan0 " + f.candump).c_str()), 0) << f.candump;
        CANFrame got;
        EXPECT_TRUE(can.recvFrame(&got, 1000000) == 0 && got.canid() == f.canid &&
                    std::string(got.data(), got.dataLen()) == f.data)
            << f.candump;
    }
    // candump ends 300 ms after the last frame it saw.
    FILE* dump = popen("candump -L -T 300 vcan0", "r");
    ASSERT_NE(dump, nullptr);
    // candump hears the bus once it has started: a probe frame every 50 ms
    // until it prints one.
    const CANFrame probe(0x7EE, "p", 1);
    pollfd ready{fileno(dump), POLLIN, 0};
    for (int probes = 0; probes < 100 && poll(&ready, 1, 0) == 0; ++probes) {
        ASSERT_EQ(can.sendFrame(probe, 1000000), 0);
        poll(&ready, 1, 50);
    }
    std::vector<std::string> expected;
    for (const Frame& f : kFrames) {
        const CANFrame sent(f.id, f.data.data(), static_cast<unsigned char>(f.data.size()),
                            f.id > 0x7FF ? 1 : 0);
        EXPECT_EQ(can.sendFrame(sent, 1000000), 0) << f.candump;
        expected.push_back(f.candump);
    }
    // "(1700000000.000000) vcan0 123#010203" reduced to "123#010203".
    std::vector<std::string> shown;
    char line[256];
    while (fgets(line, sizeof line, dump) != nullptr) {
        std::string text(line);
        size_t at = text.find(" vcan0 ");
        if (at != std::string::npos && text.compare(at + 7, 6, "7EE#70") != 0)
            shown.push_back(text.substr(at + 7, text.find('\n') - at - 7));
    }
    pclose(dump);
    EXPECT_EQ(shown, expected);
}

TEST(KernelSocketCAN, ReportsAnInterfaceTakenDown) {
    SocketCAN sender, receiver;
    ASSERT_TRUE(sender.open(kBus, 0) && receiver.open(kBus, 0));
    ASSERT_EQ(std::system("/usr/sbin/ip link set vcan0 down"), 0);
    CANFrame got;
    std::vector<std::string> lines = test::LogCapture::get().linesDuring([&] {
        EXPECT_EQ(sender.sendFrame(CANFrame(0x123, "x", 1), 100000), -1);
        EXPECT_EQ(receiver.recvFrame(&got, 100000), -1);
    });
    ASSERT_EQ(std::system("/usr/sbin/ip link set vcan0 up"), 0);
    const std::string both = lines.size() == 2 ? lines[0] + "\n" + lines[1] : "";
    EXPECT_TRUE(
        std::regex_match(both, std::regex(R"(.*\[SocketCAN::sendData,L#\] .*Network is down.*\n)"
                                          R"(.*\[SocketCAN::recvData,L#\] .*Network is down.*)")))
        << both;
    // Up again, the same sockets carry frames; the sender hears no echo.
    EXPECT_EQ(sender.sendFrame(CANFrame(0x124, "y", 1), 1000000), 0);
    EXPECT_TRUE(receiver.recvFrame(&got, 1000000) == 0 && got.canid() == 0x124u);
    EXPECT_EQ(sender.recvFrame(&got, 0), -2);
}

}  // namespace
}  // namespace orvane
