#include <gtest/gtest.h>

#include <vector>

#include "kernel/SerialLink.h"
#include "support/ToolRun.h"

// SerialPort on the 8250 driver's UARTs (qemu's 16550A): ttyS1 and ttyS2 are
// wired to each other by the virtual machine.
namespace orvane {
namespace {

const char* const kNear = "/dev/ttyS1";
const char* const kFar = "/dev/ttyS2";

// Checks that busybox stty shows every one of `expected` among the line's
// settings ("speed 9600 baud;", "cs7", "-parenb", ...), the speed's number too.
void expectWords(const std::vector<std::string>& expected, const std::string& label) {
    const std::string text =
        " " + test::toolOutput(std::string("stty -a -F ") + kNear + " | tr ';\\n\\t' '   '") + " ";
    for (const std::string& word : expected)
        EXPECT_NE(text.find(" " + word + " "), std::string::npos) << label << ": " << word;
}

// Each row opens the line afresh and starts from what the row before left.
TEST(KernelSerialPort, AppliesEveryLineAttributeToTheUart) {
    const struct {
        std::vector<std::pair<int, int>> set;  // attribute, value
        std::vector<std::string> words;        // stty words that must be there
    } cases[] = {
        // Raw whatever the attributes: no input or output processing, no echo.
        {{},
         {"115200", "cs8", "-cstopb", "-parenb", "-crtscts", "cread", "-icanon", "-echo", "-isig",
          "-opost", "-icrnl", "-ixon"}},
        {{{SerialPort::BAUD, 9600}, {SerialPort::DATABITS, 7}, {SerialPort::STOPBITS, 2}},
         {"9600", "cs7", "cstopb", "-parenb"}},
        {{{SerialPort::DATABITS, 6}, {SerialPort::PARITY, 1}, {SerialPort::FLOWCTRL, 1}},
         {"cs6", "parenb", "parodd", "crtscts"}},
        // Flow control 2 sets HUPCL and CLOCAL and leaves RTS/CTS as it was.
        {{{SerialPort::FLOWCTRL, 2}}, {"crtscts", "hupcl", "clocal", "-ixon"}},
    };
    for (const auto& c : cases) {
        const std::string& label = c.words.front();
        SerialPort port;
        for (auto& attribute : c.set)
            ASSERT_EQ(port.setAttribute(attribute.first, attribute.second), 0) << label;
        ASSERT_TRUE(port.open(kNear, 2)) << label;
        expectWords(c.words, label);
    }
}

TEST(KernelSerialPort, SetLineReachesTheUartAndKeepsASpeedItCannotMake) {
    using Line = SerialPort::LineSettings;
    const struct {
        Line line;
        std::vector<std::string> words;
    } cases[] = {
        {{9600, 8, Line::Parity::Even, 1, Line::Flow::None},
         {"9600", "parenb", "-parodd", "inpck"}},
        {{19200, 8, Line::Parity::None, 1, Line::Flow::Software}, {"19200", "ixon", "ixoff"}},
    };
    SerialPort port;
    ASSERT_TRUE(port.open(kNear, 2));
    Line back;
    for (const auto& c : cases) {
        const std::string label = SerialPort::lineText(c.line);
        ASSERT_TRUE(port.setLine(c.line)) << label;
        expectWords(c.words, label);
        EXPECT_TRUE(port.getLine(&back) && SerialPort::lineText(back) == label) << label;
    }
    // qemu's 16550A runs from a 1.8432 MHz clock, 115200 baud at most: the
    // driver accepts a faster rate and keeps the speed the line had, which
    // getLine shows while the port keeps the attribute it was given.
    EXPECT_TRUE(port.setLine(Line{921600, 8, Line::Parity::None, 1, Line::Flow::None}));
    EXPECT_TRUE(port.getLine(&back) && back.baud == 19200);
    SerialPort other;
    EXPECT_TRUE(other.setAttribute(SerialPort::BAUD, 460800) == 0 && other.open(kNear, 2));
    expectWords({"19200"}, "460800");
}

TEST(KernelSerialPort, CarriesEveryByteValueBothWaysWithoutEcho) {
    SerialPort near, far;
    ASSERT_TRUE(near.open(kNear, 2) && far.open(kFar, 2));
    for (const std::string& payload : {test::everyByte(), std::string(4096, 'x')}) {
        for (SerialPort* from : {&near, &far}) {
            SerialPort& to = from == &near ? far : near;
            EXPECT_EQ(from->sendData(payload.data(), static_cast<int>(payload.size()), 1000000),
                      static_cast<int>(payload.size()));
            EXPECT_EQ(test::receive(to, payload.size()), payload) << payload.size() << " bytes";
            char extra;
            EXPECT_TRUE(from->recvData(&extra, 1, 0) == -2 && to.recvData(&extra, 1, 0) == -2);
        }
    }
}

}  // namespace
}  // namespace orvane
