#include <dlfcn.h>
#include <linux/serial.h>
#include <orvane/SerialPort.h>
#include <pty.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <thread>

#include "device/SerialTermios.h"
#include "support/Descriptors.h"
#include "support/Refusal.h"

// While a test points this at a list, every ioctl() of the process (the
// library's included) is recorded there instead of reaching the driver: the
// request, then its value, or for TIOCSRS485 how its record differs from
// "enabled, no delays". It fails, as on a line without RS-485 support.
static std::vector<long>* ioctlCalls;

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

namespace orvane {
namespace {

using Line = SerialPort::LineSettings;
using Parity = Line::Parity;
using Flow = Line::Flow;

void refused(int result, int expected, const char* method, const std::string& text) {
    EXPECT_EQ(result, expected) << text;
    EXPECT_EQ(test::LogCapture::get().waitLine(text),
              std::string("<E>DATE [SerialPort::") + method + ",L#] " + text);
    test::LogCapture::get().clear();
}

// The port opens the slave of a pseudo-terminal by name; the test plays the
// device on the master. The line settings bits of c_cflag are checked on a
// real UART by the kernel tier; a pty forces CS8 and drops parity.
TEST(SerialPort, ConfiguresExchangesWaitsDrivesRs485AndSeesAHangUpOverAPty) {
    int master = -1, slave = -1;
    char name[64] = {}, buf[8] = {};
    ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    SerialPort port;
    Line read;
    refused(port.setLine(Line()), false, "setLine",
            "Device is not open, cannot set line 115200 8N1 flow none");
    refused(port.getLine(&read), false, "getLine", "parameter error.");
    termios got{};
    ASSERT_EQ(::write(master, "stale", 5), 5);  // dropped by open
    ASSERT_EQ(port.setAttribute(SerialPort::BAUD, 9600), 0);
    ASSERT_TRUE(port.open(name, 2));
    tcflush(master, TCIFLUSH);  // a line not yet raw may have echoed "stale"
    ASSERT_EQ(tcgetattr(port.fd(), &got), 0);
    EXPECT_EQ(cfgetospeed(&got), B9600);
    EXPECT_EQ(got.c_iflag + (got.c_oflag & OPOST) + got.c_cc[VMIN] * 100 + got.c_cc[VTIME], 110u);
    EXPECT_EQ(fcntl(port.fd(), F_GETFL) & (O_ACCMODE | O_SYNC | O_NONBLOCK), O_RDWR | O_SYNC);
    EXPECT_NE(fcntl(port.fd(), F_GETFD) & FD_CLOEXEC, 0);

    // Raw bytes both ways; one read returns at most len bytes.
    const std::string request("AT\r\n\x00\xff", 6), answer("ok\r\0\x11", 5);
    ASSERT_EQ(port.sendData(request.data(), 6, 1000000), 6);
    EXPECT_EQ(::read(master, buf, sizeof buf) == 6 ? std::string(buf, 6) : "", request);
    EXPECT_EQ(::write(master, answer.data(), 5), 5);
    EXPECT_EQ(port.recvData(buf, 2, 1000000), 2);
    EXPECT_EQ(port.recvData(buf + 2, 8, 1000000), 3);
    EXPECT_EQ(std::string(buf, 5), answer);

    ASSERT_TRUE(port.setLine({9600, 7, Parity::Even, 2, Flow::Software}) && port.getLine(&read));
    EXPECT_EQ(SerialPort::lineText(read), "9600 8N2 flow sw");
    refused(port.setLine({9600, 8, Parity::None, 0, Flow::None}), false, "setLine",
            "unsupported stop bits 0");

    // RS-485 is switched on and its direction driven through the driver,
    // whose answers are not checked; datamode 1 is only stored.
    std::vector<long> calls;
    ioctlCalls = &calls;
    for (int mode : {1, 2}) EXPECT_EQ(port.setAttribute(SerialPort::DATAMODE, mode), 0);
    for (int dir : {1, 0}) EXPECT_EQ(port.setAttribute(SerialPort::RS485DIR, dir), 0);
    ioctlCalls = nullptr;
    EXPECT_EQ(calls, (std::vector<long>{TIOCSRS485, 0, 16, 1, 16, 0}));

    // A hang-up ends even a wait without limit; isHungUp tells it from
    // silence until the port is closed.
    EXPECT_FALSE(port.isHungUp());
    std::thread peer([master] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ::close(master);
    });
    EXPECT_EQ(port.recvData(buf, sizeof buf, -1), 0);
    peer.join();
    EXPECT_TRUE(port.isHungUp() && port.close() && !port.isHungUp());
    ::close(slave);
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
        EXPECT_EQ(port.recvData(nullptr, 4, 0), -1);
        EXPECT_EQ(port.getAttribute(SerialPort::BAUD), 115200);  // refusals store nothing
    }  // the destructor closes what the failed open left open
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

TEST(SerialPortLine, BuildsTheTermiosOfEachLineAndReadsItBack) {
    using P = Parity;
    using F = Flow;
    const tcflag_t PAR = PARENB, ODD = PARODD, TWO = CSTOPB, RTS = CRTSCTS, RX = CREAD | CLOCAL;
    // The line, its speed, c_cflag bits set and cleared, and c_iflag exactly;
    // or why it is refused, leaving the termios untouched.
    const struct {
        Line line;
        speed_t speed;
        tcflag_t set, clear, iflag;
        const char* refusal = nullptr;
    } rows[] = {
        {{19200, 7, P::Odd, 2, F::Hardware}, B19200, CS7 | PAR | ODD | TWO | RTS, 0, INPCK},
        {{9600, 8, P::Even, 1, F::None}, B9600, CS8 | PAR | RX, ODD | TWO | RTS, INPCK},
        {{4000000, 5, P::None, 2, F::None}, B4000000, CS5 | TWO, PAR | RTS, 0},
        {{14400, 8, P::None, 1, F::None}, 0, 0, 0, 0, "unsupported baud rate 14400"},
        {{9600, 8, P::None, 3, F::None}, 0, 0, 0, 0, "unsupported stop bits 3"},
        {{9600, 8, static_cast<Parity>(3), 1, F::None}, 0, 0, 0, 0, "unsupported parity 3"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(SerialPort::lineText(row.line));
        // Started as a cooked terminal, with bits the line must clear.
        termios tio{};
        tio.c_iflag = ICRNL | IXON | IXANY | ISTRIP;
        tio.c_oflag = OPOST | ONLCR;
        tio.c_cflag = CS7 | CSTOPB | PARENB | PARODD | CRTSCTS | HUPCL;
        tio.c_lflag = ISIG | ICANON | ECHO | ECHOE | IEXTEN;
        cfsetspeed(&tio, B9600);
        const termios cooked = tio;
        std::string error;
        bool built = detail::lineTermios(row.line, &tio, &error);
        EXPECT_EQ(error, row.refusal ? row.refusal : "");
        if (!built) {
            EXPECT_TRUE(tio.c_iflag == cooked.c_iflag && tio.c_oflag == cooked.c_oflag &&
                        tio.c_cflag == cooked.c_cflag && tio.c_lflag == cooked.c_lflag &&
                        memcmp(tio.c_cc, cooked.c_cc, sizeof tio.c_cc) == 0);  // left untouched
            continue;
        }
        // Raw: no output processing, no local modes, VMIN 1 and VTIME 10.
        const tcflag_t cooking =
            (tio.c_oflag & OPOST) | (tio.c_lflag & (ISIG | ICANON | ECHO | ECHOE | IEXTEN));
        EXPECT_EQ(std::make_tuple(cfgetospeed(&tio), tio.c_cflag & (row.set | row.clear),
                                  tio.c_iflag, cooking, tio.c_cc[VMIN] * 100 + tio.c_cc[VTIME]),
                  std::make_tuple(row.speed, row.set, row.iflag, tcflag_t{0}, 110));
        EXPECT_EQ(SerialPort::lineText(detail::lineOf(tio)), SerialPort::lineText(row.line));
    }
}

}  // namespace
}  // namespace orvane
