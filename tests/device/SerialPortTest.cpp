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
#include <thread>
#include <vector>

#include "support/LogCapture.h"

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
    Pty() { openpty(&master, &slave, name, nullptr, nullptr); }
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
        EXPECT_EQ(cfgetospeed(&got), row.speed);
        EXPECT_EQ(got.c_iflag, 0u);
        EXPECT_EQ(got.c_oflag, before.c_oflag & ~OPOST);
        EXPECT_EQ(got.c_lflag, before.c_lflag & ~(ISIG | ICANON | ECHO | ECHOE));
        EXPECT_EQ(got.c_cc[VMIN], 1);
        EXPECT_EQ(got.c_cc[VTIME], 10);
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
    int fds = test::openFdCount();
    {
        SerialPort port;
        refused(port.setAttribute(0, 14400), -1, "setAttribute", "Unsupport baud:14400.");
        refused(port.setAttribute(1, 4), -1, "setAttribute", "Unsupport databits:4.");
        refused(port.setAttribute(2, 0), -1, "setAttribute", "Unsupport stopbits:0.");
        refused(port.setAttribute(3, -1), -1, "setAttribute", "Unsupport parity:-1.");
        refused(port.setAttribute(4, 3), -1, "setAttribute", "Unsupport flowctrl:3.");
        refused(port.setAttribute(9, 1), 0, "setAttribute", "Unsupport attribute:9.");
        refused(port.setAttribute(6, 1), -1, "setAttribute",
                "Device is not open,cannot set attibute:6!");
        char buf[4];
        refused(port.recvData(buf, 4, 0), -1, "recvData", "parameter error.");
        refused(port.open("", 2), false, "open", "Parameter error.");
        refused(port.open("/dev/null", 3), false, "open", "Parameter error.");
        refused(port.open("/x/y", 2), false, "open", "Open /x/y error: No such file or directory");
        // Not a tty: the line cannot be configured and the port stays open.
        refused(port.open("/dev/null", 2), false, "open", "Can't set attribute!");
        refused(port.open("/dev/null", 2), false, "open", "Device is already opened!");
        refused(port.setAttribute(0, 9600), -1, "setAttribute",
                "Device is allready open, cannot set attribute:0!");
        refused(port.setAttribute(5, 3), -1, "setAttribute", "Unsupport datamode:3.");
        refused(port.setAttribute(6, 2), -1, "setAttribute", "Unsupport rs485dir:2.");
        refused(port.sendData(nullptr, 4, 0), -1, "sendData", "parameter error.");
        refused(port.recvData(buf, 0, 0), -1, "recvData", "parameter error.");
        refused(port.sendData(buf, -5, 0), -1, "sendData", "parameter error.");
        EXPECT_EQ(port.getAttribute(SerialPort::BAUD), 115200);  // refusals store nothing
    }  // the destructor closes what the failed open left open
    EXPECT_EQ(test::openFdCount(), fds);
}

}  // namespace
}  // namespace orvane
