#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <orvane/SerialPort.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "device/SerialTermios.h"
#include "support/Descriptors.h"
#include "support/Emulator.h"
#include "support/Refusal.h"

// While a test points this at a list, every ioctl() of the process (the
// library's included) is recorded there instead of reaching the driver: the
// request, then its value, or for TIOCSRS485 how its record differs from
// "enabled, no delays". It fails, as on a line without RS-485 support.
static std::vector<long>* ioctlCalls;
// What the last tcsetattr() was handed: a pseudo-terminal forces CS8 and
// clears PARENB, so those bits are checked here rather than read back.
static termios lastTcsetattr;

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list args;
    va_start(args, request);
    void* arg = va_arg(args, void*);
    va_end(args);
    using Ioctl = int (*)(int, unsigned long, ...);
    if (!ioctlCalls) return reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"))(fd, request, arg);
    serial_rs485 enabled{};
    enabled.flags = SER_RS485_ENABLED;
    long value = request == TIOCSRS485 ? memcmp(arg, &enabled, sizeof enabled) : intptr_t(arg);
    ioctlCalls->insert(ioctlCalls->end(), {static_cast<long>(request), value});
    return -1;
}

extern "C" int tcsetattr(int fd, int action, const termios* tio) noexcept {
    lastTcsetattr = *tio;
    return reinterpret_cast<decltype(&tcsetattr)>(dlsym(RTLD_NEXT, "tcsetattr"))(fd, action, tio);
}

namespace orvane {
namespace {

// A pseudo-terminal: the port opens the slave by name, the test plays the
// device on the master.
struct Pty {
    Pty() { EXPECT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0); }
    ~Pty() { ::close(master), ::close(slave); }
    int master = -1, slave = -1;
    char name[64] = {};
};

void refused(int result, int expected, const char* method, const std::string& text) {
    EXPECT_EQ(result, expected) << text;
    EXPECT_EQ(test::LogCapture::get().waitLine(text),
              std::string("<E>DATE [SerialPort::") + method + ",L#] " + text);
    test::LogCapture::get().clear();
}

// Raw bytes both ways between the port and the peer's end of the line.
void exchange(SerialPort& port, int peer) {
    const std::string request("AT\r\n\x00\xff", 6), answer("ok\r\0\x11", 5);
    EXPECT_EQ(port.sendData(request.data(), 6, 1000000), 6);
    char buf[16] = {};
    pollfd ready{peer, POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 1000) == 1 ? ::read(peer, buf, sizeof buf) : 0, 6);
    EXPECT_EQ(std::string(buf, 6), request);
    EXPECT_EQ(::write(peer, answer.data(), 5), 5);
    EXPECT_EQ(port.recvData(buf, 2, 1000000), 2);  // one read of at most len bytes
    EXPECT_EQ(port.recvData(buf + 2, 8, 1000000), 3);
    EXPECT_EQ(std::string(buf, 5), answer);
}

// One port reopened on one line in turn, each row starting from what the one
// before left: flow control 2 keeps CRTSCTS, parity 3 drops the second stop
// bit, parity 2 clears PARODD. The first row keeps the defaults.
TEST(SerialPort, ConfiguresExchangesWaitsAndDrivesRs485OverAPty) {
    // The line settings baud to flowctrl, the speed read back, and the size,
    // set and cleared bits of c_cflag as handed to tcsetattr.
    struct Row {
        int line[5];
        speed_t speed;
        tcflag_t size, on, off;
    } rows[] = {
        {{115200, 8, 1, 0, 0}, B115200, CS8, CREAD, CSTOPB | PARENB | CRTSCTS},
        {{9600, 7, 2, 1, 1}, B9600, CS7, CSTOPB | PARENB | PARODD | CRTSCTS, 0},
        {{921600, 5, 2, 3, 2}, B921600, CS5, CRTSCTS | 0x1C00, CSTOPB | PARENB},
        {{19200, 6, 1, 2, 0}, B19200, CS6, CREAD, CSTOPB | PARENB | PARODD | CRTSCTS},
    };
    Pty pty;
    SerialPort port;
    char buf[8];
    for (const Row& row : rows) {
        termios before{}, got{};
        tcgetattr(pty.slave, &before);
        ASSERT_EQ(::write(pty.master, "stale", 5), 5);  // dropped by open
        ASSERT_TRUE(port.close());
        for (int a = 0; a < 5 && &row > rows; ++a) ASSERT_EQ(port.setAttribute(a, row.line[a]), 0);
        ASSERT_TRUE(port.open(pty.name, 2));
        tcflush(pty.master, TCIFLUSH);  // a line not yet raw may have echoed "stale"
        tcflag_t cflag = lastTcsetattr.c_cflag & (CSIZE | row.on | row.off);
        EXPECT_EQ(cflag, row.size | row.on) << row.line[0];
        ASSERT_EQ(tcgetattr(port.fd(), &got), 0);
        // qemu-user translates no termios speed above 460800 baud: it reads back 0.
        if (!test::underEmulator() || row.line[0] <= 460800) {
            EXPECT_EQ(cfgetospeed(&got), row.speed);
        }
        EXPECT_EQ(got.c_iflag, 0u);
        EXPECT_EQ(got.c_oflag, before.c_oflag & ~OPOST);
        EXPECT_EQ(got.c_lflag, before.c_lflag & ~(ISIG | ICANON | ECHO | ECHOE));
        EXPECT_EQ(got.c_cc[VMIN] * 100 + got.c_cc[VTIME], 110);  // VMIN 1, VTIME 10
        EXPECT_EQ(fcntl(port.fd(), F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK), O_RDWR | O_SYNC);
        EXPECT_NE(fcntl(port.fd(), F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(port.recvData(buf, sizeof buf, 0), -2);
        exchange(port, pty.master);
    }
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(port.recvData(buf, sizeof buf, 100000), -2);
    auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(waited >= std::chrono::milliseconds(95) && waited < std::chrono::seconds(3));
    std::thread peer([&pty] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(::write(pty.master, "late", 4), 4);
    });
    EXPECT_EQ(port.recvData(buf, sizeof buf, -1), 4);  // no limit: waits for the data
    peer.join();

    // RS-485 is switched on and its direction driven through the driver,
    // whose answers are not checked.
    std::vector<long> calls;
    ioctlCalls = &calls;
    for (int mode : {1, 2}) EXPECT_EQ(port.setAttribute(SerialPort::DATAMODE, mode), 0);
    for (int dir : {1, 0}) EXPECT_EQ(port.setAttribute(SerialPort::RS485DIR, dir), 0);
    ioctlCalls = nullptr;
    // datamode 1 is only stored
    EXPECT_EQ(calls, (std::vector<long>{TIOCSRS485, 0, 16, 1, 16, 0}));
    if (test::underEmulator())
        GTEST_SKIP() << "qemu-user translates no termios speed above 460800 baud: 921600 unread";
}

// Silence times out; a hang-up ends the input at once, and isHungUp tells
// the two apart until the port is closed.
TEST(SerialPort, TellsAHangUpFromSilence) {
    Pty pty;
    SerialPort port;
    char buf[8];
    ASSERT_TRUE(port.open(pty.name, 2));
    EXPECT_EQ(port.recvData(buf, sizeof buf, 1000), -2);
    EXPECT_FALSE(port.isHungUp());
    ::close(pty.master);
    pty.master = -1;
    EXPECT_TRUE(port.isHungUp());
    EXPECT_EQ(port.recvData(buf, sizeof buf, 1000000), 0);  // at once, end of input
    EXPECT_TRUE(port.close());
    EXPECT_FALSE(port.isHungUp());
}

TEST(SerialPort, RefusesBadInputWithItsLineAndLeaksNothing) {
    const std::vector<int> fds = test::openFds();
    {
        SerialPort port;
        refused(port.setAttribute(0, 14400), -1, "setAttribute", "Unsupport baud:14400.");
        refused(port.setAttribute(9, 1), 0, "setAttribute", "Unsupport attribute:9.");
        refused(port.setAttribute(6, 1), -1, "setAttribute",
                "Device is not open,cannot set attibute:6!");
        refused(port.open("/x/y", 2), false, "open", "Open /x/y error: No such file or directory");
        // Not a tty: the line cannot be configured and the port stays open.
        refused(port.open("/dev/null", 2), false, "open", "Can't set attribute!");
        refused(port.open("/dev/null", 2), false, "open", "Device is already opened!");
        refused(port.setAttribute(0, 9600), -1, "setAttribute",
                "Device is allready open, cannot set attribute:0!");
        char buf[4];
        refused(port.recvData(buf, 0, 0), -1, "recvData", "parameter error.");
        EXPECT_EQ(port.getAttribute(SerialPort::BAUD), 115200);  // refusals store nothing
        EXPECT_EQ(port.getAttribute(7), -1);
    }  // the destructor closes what the failed open left open
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

using Line = SerialPort::LineSettings;
using Parity = Line::Parity;
using Flow = Line::Flow;

// A termios as a cooked terminal starts, with bits the line must clear.
termios cookedTermios() {
    termios tio{};
    tio.c_iflag = ICRNL | IXON | IXANY | ISTRIP;
    tio.c_oflag = OPOST | ONLCR;
    tio.c_cflag = CS7 | CSTOPB | PARENB | PARODD | CRTSCTS | HUPCL;
    tio.c_lflag = ISIG | ICANON | ECHO | ECHOE | IEXTEN;
    cfsetspeed(&tio, B9600);
    return tio;
}

TEST(SerialPortLine, BuildsTheTermiosOfEachLineAndReadsItBack) {
    using P = Parity;
    using F = Flow;
    const tcflag_t PAR = PARENB, ODD = PARODD, TWO = CSTOPB, RTS = CRTSCTS, RX = CREAD | CLOCAL;
    // The line, its speed, c_cflag bits set and cleared, and c_iflag exactly.
    const struct {
        Line line;
        speed_t speed;
        tcflag_t set, clear, iflag;
    } rows[] = {
        {{9600, 8, P::Even, 1, F::None}, B9600, CS8 | PAR | RX, ODD | TWO | RTS, INPCK},
        {{19200, 7, P::Odd, 2, F::Hardware}, B19200, CS7 | PAR | ODD | TWO | RTS, 0, INPCK},
        {{115200, 8, P::None, 1, F::Software}, B115200, CS8, PAR | ODD | TWO | RTS, IXON | IXOFF},
        {{4000000, 5, P::None, 2, F::None}, B4000000, CS5 | TWO, PAR | RTS, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(SerialPort::lineText(row.line));
        termios tio = cookedTermios();
        std::string error;
        ASSERT_TRUE(detail::lineTermios(row.line, &tio, &error)) << error;
        EXPECT_EQ(cfgetospeed(&tio), row.speed);
        EXPECT_EQ(cfgetispeed(&tio), row.speed);
        EXPECT_EQ(tio.c_cflag & (row.set | row.clear), row.set);
        EXPECT_EQ(tio.c_iflag, row.iflag);
        EXPECT_EQ(tio.c_oflag & OPOST, 0u);
        EXPECT_EQ(tio.c_lflag & (ISIG | ICANON | ECHO | ECHOE | IEXTEN), 0u);
        EXPECT_EQ(tio.c_cc[VMIN] * 100 + tio.c_cc[VTIME], 110);  // VMIN 1, VTIME 10
        EXPECT_EQ(SerialPort::lineText(detail::lineOf(tio)), SerialPort::lineText(row.line));
    }
    const std::pair<Line, const char*> bad[] = {
        {{14400, 8, Parity::None, 1, Flow::None}, "unsupported baud rate 14400"},
        {{9600, 8, Parity::None, 3, Flow::None}, "unsupported stop bits 3"},
        {{9600, 8, static_cast<Parity>(3), 1, Flow::None}, "unsupported parity 3"},
    };
    for (const auto& [line, reason] : bad) {
        termios tio = cookedTermios(), before = tio;
        std::string error;
        EXPECT_FALSE(detail::lineTermios(line, &tio, &error));
        EXPECT_EQ(error, reason);
        bool leftAlone = tio.c_iflag == before.c_iflag && tio.c_oflag == before.c_oflag &&
                         tio.c_cflag == before.c_cflag && tio.c_lflag == before.c_lflag &&
                         cfgetospeed(&tio) == cfgetospeed(&before) &&
                         memcmp(tio.c_cc, before.c_cc, sizeof tio.c_cc) == 0;
        EXPECT_TRUE(leftAlone) << reason;
    }
}

TEST(SerialPortLine, APtyKeepsSoftwareFlowButDropsParityAndForcesEightBits) {
    Pty pty;
    SerialPort port;
    Line read;
    test::expectRefusal([&] { return port.setLine(Line()); },
                        "<E>DATE [SerialPort::setLine,L#] Device is not open, cannot set line "
                        "115200 8N1 flow none");
    test::expectRefusal([&] { return port.getLine(&read); },
                        "<E>DATE [SerialPort::getLine,L#] parameter error.");
    ASSERT_TRUE(port.open(pty.name, 2));
    ASSERT_TRUE(port.setLine({9600, 7, Parity::Even, 2, Flow::Software}));
    ASSERT_TRUE(port.getLine(&read));
    // The pty keeps speed, stop bits and software flow, drops parity, forces CS8.
    EXPECT_EQ(SerialPort::lineText(read), "9600 8N2 flow sw");
    termios tio{};  // what the test reads on its own agrees
    ASSERT_EQ(tcgetattr(pty.slave, &tio), 0);
    EXPECT_EQ(cfgetospeed(&tio), B9600);
    EXPECT_EQ(tio.c_iflag & (IXON | IXOFF), tcflag_t(IXON | IXOFF));
    EXPECT_EQ(port.getAttribute(SerialPort::BAUD), 115200);  // attributes unchanged
    ASSERT_EQ(::write(pty.master, "a\rb\n", 4), 4);          // raw: no CR/LF translation
    char buf[8] = {};
    EXPECT_EQ(port.recvData(buf, sizeof buf, 1000000), 4);
    EXPECT_EQ(std::string(buf, 4), "a\rb\n");
    Line noStop{9600, 8, Parity::None, 0, Flow::None};
    test::expectRefusal([&] { return port.setLine(noStop); },
                        "<E>DATE [SerialPort::setLine,L#] unsupported stop bits 0");
    ASSERT_TRUE(port.getLine(&read));
    EXPECT_EQ(read.stopBits, 2);  // refused: unchanged
}

}  // namespace
}  // namespace orvane
