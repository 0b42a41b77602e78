#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <orvane/SerialPort.h>
#include <orvane/UniqueFd.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <chrono>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kernel/SerialLink.h"
#include "support/LogCapture.h"
#include "support/ToolRun.h"

// SerialPort on the 8250 driver's UARTs (qemu's 16550A): ttyS1 and ttyS2 are
// wired to each other by the virtual machine.
namespace orvane {
namespace {

const char* const kNear = "/dev/ttyS1";
const char* const kFar = "/dev/ttyS2";

// The line's settings as busybox stty prints them ("speed 9600 baud;",
// "cs7", "-parenb", ...), split into words.
std::set<std::string> sttyWords(const char* device) {
    std::istringstream text(
        test::toolOutput(std::string("stty -a -F ") + device + " 2> /dev/null"));
    std::set<std::string> words;
    for (std::string word; text >> word;) {
        while (!word.empty() && word.back() == ';') word.pop_back();
        words.insert(word);
    }
    return words;
}

std::string sttySpeed(const char* device) {
    std::string text = test::toolOutput(std::string("stty -F ") + device + " speed 2> /dev/null");
    return text.substr(0, text.find('\n'));
}

struct AttributeCase {
    std::vector<std::pair<int, int>> set;  // attribute, value
    std::string speed;                     // stty's speed
    std::vector<std::string> words;        // stty words that must be there
};

TEST(KernelSerialPort, AppliesEveryLineAttributeToTheUart) {
    const AttributeCase cases[] = {
        {{}, "115200", {"cs8", "-cstopb", "-parenb", "-crtscts", "cread"}},
        {{{SerialPort::BAUD, 9600}, {SerialPort::DATABITS, 7}, {SerialPort::STOPBITS, 2}},
         "9600",
         {"cs7", "cstopb", "-parenb"}},
        {{{SerialPort::BAUD, 1200}, {SerialPort::DATABITS, 5}}, "1200", {"cs5", "-cstopb"}},
        {{{SerialPort::DATABITS, 6}, {SerialPort::PARITY, 1}},
         "115200",
         {"cs6", "parenb", "parodd"}},
        // Parity 2 enables no parity bit; parity 3 also drops the second stop bit.
        {{{SerialPort::STOPBITS, 2}, {SerialPort::PARITY, 2}}, "115200", {"cstopb", "-parenb"}},
        {{{SerialPort::STOPBITS, 2}, {SerialPort::PARITY, 3}}, "115200", {"-cstopb", "-parenb"}},
        {{{SerialPort::FLOWCTRL, 1}}, "115200", {"crtscts"}},
        // Flow control 2 sets HUPCL and CLOCAL (CBAUDEX is part of 115200)
        // and leaves RTS/CTS as the line had it: on from the case before.
        {{{SerialPort::FLOWCTRL, 2}}, "115200", {"crtscts", "hupcl", "clocal", "-ixon"}},
        {{{SerialPort::FLOWCTRL, 0}}, "115200", {"-crtscts"}},
        {{{SerialPort::BAUD, 57600}}, "57600", {"cs8"}},
    };
    // Raw whatever the attributes: no input or output processing, no echo.
    const std::vector<std::string> raw = {"-icanon", "-echo",  "-echoe", "-isig",
                                          "-opost",  "-icrnl", "-ixon"};
    for (const AttributeCase& c : cases) {
        std::string label = "speed " + c.speed + " with " + std::to_string(c.set.size()) +
                            " attributes, first " +
                            (c.set.empty() ? "-" : std::to_string(c.set[0].first));
        SerialPort port;
        for (auto& attribute : c.set)
            ASSERT_EQ(port.setAttribute(attribute.first, attribute.second), 0) << label;
        ASSERT_TRUE(port.open(kNear, 2)) << label;
        EXPECT_EQ(sttySpeed(kNear), c.speed) << label;
        std::set<std::string> words = sttyWords(kNear);
        for (const std::string& word : c.words) EXPECT_TRUE(words.count(word)) << label << word;
        for (const std::string& word : raw) EXPECT_TRUE(words.count(word)) << label << word;

        termios line{};
        ASSERT_EQ(tcgetattr(port.fd(), &line), 0);
        EXPECT_EQ(line.c_cc[VMIN], 1) << label;
        EXPECT_EQ(line.c_cc[VTIME], 10) << label;
        EXPECT_EQ(fcntl(port.fd(), F_GETFL) & O_NONBLOCK, 0) << label;
    }
}

TEST(KernelSerialPort, KeepsTheOldSpeedWhereTheUartCannotFollowAndGetLineShowsIt) {
    // qemu's 16550A runs from a 1.8432 MHz clock: 115200 baud at most. The
    // driver accepts a faster rate and keeps the speed the line had.
    {
        SerialPort port;
        ASSERT_EQ(port.setAttribute(SerialPort::BAUD, 19200), 0);
        ASSERT_TRUE(port.open(kNear, 2));
    }
    for (int baud : {921600, 460800, 230400}) {
        SerialPort port;
        ASSERT_EQ(port.setAttribute(SerialPort::BAUD, baud), 0);
        EXPECT_TRUE(port.open(kNear, 2)) << baud;
        SerialPort::LineSettings line;
        ASSERT_TRUE(port.getLine(&line));
        EXPECT_EQ(line.baud, 19200) << baud;
        EXPECT_EQ(sttySpeed(kNear), "19200") << baud;
        EXPECT_EQ(port.getAttribute(SerialPort::BAUD), baud);

        // setLine as well: accepted, and the line stays where it was.
        SerialPort::LineSettings fast;
        fast.baud = baud;
        EXPECT_TRUE(port.setLine(fast)) << baud;
        ASSERT_TRUE(port.getLine(&line));
        EXPECT_EQ(line.baud, 19200) << baud;
    }
}

TEST(KernelSerialPort, SetLineReachesTheUart) {
    using Line = SerialPort::LineSettings;
    struct Case {
        Line line;
        std::string speed;
        std::vector<std::string> words;
    } cases[] = {
        {{9600, 8, Line::Parity::Even, 1, Line::Flow::None},
         "9600",
         {"parenb", "-parodd", "inpck"}},
        {{38400, 7, Line::Parity::Odd, 2, Line::Flow::Hardware},
         "38400",
         {"cs7", "parodd", "crtscts"}},
        {{115200, 8, Line::Parity::None, 1, Line::Flow::Software}, "115200", {"ixon", "ixoff"}},
    };
    SerialPort port;
    ASSERT_TRUE(port.open(kNear, 2));
    for (const Case& c : cases) {
        std::string label = SerialPort::lineText(c.line);
        ASSERT_TRUE(port.setLine(c.line)) << label;
        EXPECT_EQ(sttySpeed(kNear), c.speed) << label;
        std::set<std::string> words = sttyWords(kNear);
        for (const std::string& word : c.words) EXPECT_TRUE(words.count(word)) << label << word;
        Line back;
        ASSERT_TRUE(port.getLine(&back));
        EXPECT_EQ(SerialPort::lineText(back), label);
    }
}

TEST(KernelSerialPort, CarriesEveryByteValueBothWays) {
    std::string block;
    for (int i = 0; i < 4096; ++i) block.push_back(static_cast<char>('a' + i % 26));
    const std::vector<std::string> payloads = {"hello\r\n", test::everyByte(), block};

    SerialPort near, far;
    ASSERT_TRUE(near.open(kNear, 2));
    ASSERT_TRUE(far.open(kFar, 2));
    for (const std::string& payload : payloads) {
        for (SerialPort* from : {&near, &far}) {
            SerialPort& to = from == &near ? far : near;
            EXPECT_EQ(from->sendData(payload.data(), static_cast<int>(payload.size()), 1000000),
                      static_cast<int>(payload.size()));
            EXPECT_EQ(test::receive(to, payload.size()), payload) << payload.size() << " bytes";
            // No echo on either side.
            char extra;
            EXPECT_EQ(from->recvData(&extra, 1, 0), -2);
            EXPECT_EQ(to.recvData(&extra, 1, 0), -2);
        }
    }
}

TEST(KernelSerialPort, WaitsForDataAsLongAsItIsTold) {
    SerialPort port;
    ASSERT_TRUE(port.open(kNear, 2));
    for (int timeoutUs : {0, 20000, 150000}) {
        char buf[16];
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(port.recvData(buf, sizeof buf, timeoutUs), -2) << timeoutUs;
        auto waitedUs = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::steady_clock::now() - start)
                            .count();
        EXPECT_GE(waitedUs, timeoutUs);
    }
}

TEST(KernelSerialPort, Rs485ModeIsNotSwitchedOnByAUartWithoutIt) {
    SerialPort port;
    ASSERT_TRUE(port.open(kNear, 2));
    // The driver refuses both ioctls; the port reports success all the same.
    std::vector<std::string> lines = test::LogCapture::get().linesDuring([&] {
        EXPECT_EQ(port.setAttribute(SerialPort::DATAMODE, 2), 0);
        EXPECT_EQ(port.setAttribute(SerialPort::RS485DIR, 1), 0);
    });
    EXPECT_EQ(lines, std::vector<std::string>());
    serial_rs485 rs485{};
    if (ioctl(port.fd(), TIOCGRS485, &rs485) == 0) {
        EXPECT_EQ(rs485.flags & SER_RS485_ENABLED, 0u);
    }
    EXPECT_EQ(port.getAttribute(SerialPort::DATAMODE), 2);
    EXPECT_EQ(port.getAttribute(SerialPort::RS485DIR), 1);
}

}  // namespace
}  // namespace orvane
