#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/SerialPort.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <string>

#include "device/SerialTermios.h"
#include "support/LogCapture.h"

namespace orvane::test {
namespace {

using Line = SerialPort::LineSettings;
using Parity = Line::Parity;
using Flow = Line::Flow;

Line makeLine(int baud, int dataBits, Parity parity, int stopBits, Flow flow) {
    Line line;
    line.baud = baud;
    line.dataBits = dataBits;
    line.parity = parity;
    line.stopBits = stopBits;
    line.flow = flow;
    return line;
}

// A termios as a cooked terminal starts, with bits the line must clear.
termios cookedTermios() {
    termios tio{};
    tio.c_iflag = ICRNL | IXON | IXANY | ISTRIP;
    tio.c_oflag = OPOST | ONLCR;
    tio.c_cflag = CS7 | CSTOPB | PARENB | PARODD | CRTSCTS | HUPCL;
    tio.c_lflag = ISIG | ICANON | ECHO | ECHOE | IEXTEN;
    cfsetospeed(&tio, B9600);
    cfsetispeed(&tio, B9600);
    return tio;
}

TEST(SerialLine, BuildsTheTermiosOfEachLineAndReadsItBack) {
    struct Case {
        Line line;
        speed_t speed;
        tcflag_t cflagSet;    // bits that must be set in c_cflag
        tcflag_t cflagClear;  // bits that must be clear
        tcflag_t iflag;       // c_iflag exactly
    };
    const Case cases[] = {
        {makeLine(9600, 8, Parity::Even, 1, Flow::None), B9600, CS8 | PARENB | CREAD | CLOCAL,
         PARODD | CSTOPB | CRTSCTS, INPCK},
        {makeLine(19200, 7, Parity::Odd, 2, Flow::Hardware), B19200,
         CS7 | PARENB | PARODD | CSTOPB | CRTSCTS, 0, INPCK},
        {makeLine(115200, 8, Parity::None, 1, Flow::Software), B115200, CS8,
         PARENB | PARODD | CSTOPB | CRTSCTS, IXON | IXOFF},
        {makeLine(4000000, 5, Parity::None, 2, Flow::None), B4000000, CS5 | CSTOPB,
         PARENB | CRTSCTS, 0},
        {makeLine(300, 6, Parity::Even, 1, Flow::None), B300, CS6 | PARENB, PARODD, INPCK},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(SerialPort::lineText(c.line));
        termios tio = cookedTermios();
        std::string error;
        ASSERT_TRUE(detail::lineTermios(c.line, &tio, &error)) << error;
        EXPECT_EQ(cfgetospeed(&tio), c.speed);
        EXPECT_EQ(cfgetispeed(&tio), c.speed);
        EXPECT_EQ(tio.c_cflag & c.cflagSet, c.cflagSet);
        EXPECT_EQ(tio.c_cflag & c.cflagClear, 0u);
        EXPECT_EQ(tio.c_iflag, c.iflag);
        EXPECT_EQ(tio.c_oflag & OPOST, 0u);
        EXPECT_EQ(tio.c_lflag & (ISIG | ICANON | ECHO | ECHOE | IEXTEN), 0u);
        EXPECT_EQ(tio.c_cc[VMIN], 1);
        EXPECT_EQ(tio.c_cc[VTIME], 10);
        Line back = detail::lineOf(tio);
        EXPECT_EQ(SerialPort::lineText(back), SerialPort::lineText(c.line));
    }
}

TEST(SerialLine, RefusesValuesOutOfRangeAndLeavesTheTermiosAlone) {
    const Line bad[] = {
        makeLine(14400, 8, Parity::None, 1, Flow::None),
        makeLine(9600, 9, Parity::None, 1, Flow::None),
        makeLine(9600, 4, Parity::None, 1, Flow::None),
        makeLine(9600, 8, Parity::None, 3, Flow::None),
        makeLine(9600, 8, static_cast<Parity>(3), 1, Flow::None),
        makeLine(9600, 8, Parity::None, 1, static_cast<Flow>(7)),
    };
    const char* reasons[] = {"baud rate 14400", "data bits 9", "data bits 4",
                             "stop bits 3",     "parity 3",    "flow control 7"};
    for (size_t i = 0; i < sizeof bad / sizeof bad[0]; ++i) {
        termios tio = cookedTermios();
        termios before = tio;
        std::string error;
        EXPECT_FALSE(detail::lineTermios(bad[i], &tio, &error));
        EXPECT_NE(error.find(reasons[i]), std::string::npos) << error;
        EXPECT_TRUE(tio.c_iflag == before.c_iflag && tio.c_oflag == before.c_oflag &&
                    tio.c_cflag == before.c_cflag && tio.c_lflag == before.c_lflag &&
                    memcmp(tio.c_cc, before.c_cc, sizeof tio.c_cc) == 0 &&
                    cfgetispeed(&tio) == cfgetispeed(&before) &&
                    cfgetospeed(&tio) == cfgetospeed(&before));
    }
}

struct Pty {
    int master = -1, slave = -1;
    char name[64] = "";
    Pty() { EXPECT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0); }
    ~Pty() {
        ::close(master);
        ::close(slave);
    }
};

TEST(SerialLine, APtyKeepsSoftwareFlowButDropsParityAndForcesEightBits) {
    LogCapture& log = LogCapture::fresh();
    Pty pty;
    SerialPort port;
    EXPECT_FALSE(port.setLine(Line()));  // closed
    Line read;
    EXPECT_FALSE(port.getLine(&read));
    ASSERT_TRUE(port.open(pty.name, 2));
    int attributesBefore = port.getAttribute(SerialPort::PARITY);

    ASSERT_TRUE(port.setLine(makeLine(9600, 7, Parity::Even, 2, Flow::Software)));
    ASSERT_TRUE(port.getLine(&read));
    EXPECT_EQ(read.baud, 9600);
    EXPECT_EQ(read.stopBits, 2);
    EXPECT_EQ(read.flow, Flow::Software);  // kept by the pty
    EXPECT_EQ(read.parity, Parity::None);  // dropped by the pty
    EXPECT_EQ(read.dataBits, 8);           // forced by the pty
    // What the test reads on its own agrees with getLine().
    termios tio{};
    ASSERT_EQ(tcgetattr(pty.slave, &tio), 0);
    EXPECT_EQ(cfgetospeed(&tio), B9600);
    EXPECT_EQ(tio.c_iflag & (IXON | IXOFF), tcflag_t(IXON | IXOFF));
    EXPECT_EQ(port.getAttribute(SerialPort::PARITY), attributesBefore);

    // Data passes raw: no CR/LF translation, no echo.
    ASSERT_EQ(::write(pty.master, "a\rb\n", 4), 4);
    char buf[8] = {};
    EXPECT_EQ(port.recvData(buf, sizeof buf, 1000000), 4);
    EXPECT_EQ(std::string(buf, 4), "a\rb\n");

    EXPECT_FALSE(port.setLine(makeLine(9600, 8, Parity::None, 0, Flow::None)));
    ASSERT_TRUE(port.getLine(&read));
    EXPECT_EQ(read.stopBits, 2);  // refused: unchanged
    EXPECT_TRUE(log.waitFor("[SerialPort::setLine,", 3000, 2));
    EXPECT_TRUE(log.waitFor("unsupported stop bits 0"));
    EXPECT_TRUE(log.waitFor("[SerialPort::getLine,"));
}

}  // namespace
}  // namespace orvane::test
