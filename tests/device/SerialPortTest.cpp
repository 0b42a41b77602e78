#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/serial.h>
#include <orvane/SerialPort.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "IoctlSpy.h"
#include "device/SerialTermios.h"
#include "support/LogCapture.h"

extern char** environ;

namespace orvane {
namespace {

using Clock = std::chrono::steady_clock;

// A pseudo-terminal pair: the port opens the slave, the test plays the
// device on the master.
class Pty {
  public:
    Pty() {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        char name[64] = {};
        if (master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0 &&
            ptsname_r(master, name, sizeof name) == 0) {
            slavePath = name;
        }
    }
    ~Pty() {
        if (master >= 0) ::close(master);
    }
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    // The slave's settings before anyone configured it.
    termios pristine() const {
        termios tio{};
        int fd = ::open(slavePath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        tcgetattr(fd, &tio);
        ::close(fd);
        return tio;
    }
    void put(const std::string& bytes) const {
        ASSERT_EQ(::write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // Reads until `count` bytes came or a second passed.
    std::string take(size_t count) const {
        std::string got;
        auto deadline = Clock::now() + std::chrono::seconds(1);
        while (got.size() < count && Clock::now() < deadline) {
            fd_set set;
            FD_ZERO(&set);
            FD_SET(master, &set);
            timeval wait{0, 20000};
            if (select(master + 1, &set, nullptr, nullptr, &wait) != 1) continue;
            char buf[256];
            ssize_t n = ::read(master, buf, sizeof buf);
            if (n > 0) got.append(buf, static_cast<size_t>(n));
        }
        return got;
    }

    int master = -1;
    std::string slavePath;
};

termios settingsOf(SerialPort& port) {
    termios tio{};
    EXPECT_EQ(tcgetattr(port.fd(), &tio), 0);
    return tio;
}

std::string lastLine(const std::string& text) {
    std::string line = test::LogCapture::get().waitLine(text);
    test::LogCapture::get().clear();
    return line;
}

std::string errorLine(const char* method, const std::string& text) {
    return std::string("<E>DATE [SerialPort::") + method + ",L#] " + text;
}

TEST(SerialPort, StartsClosedWithTheDefaultAttributes) {
    SerialPort port;
    EXPECT_EQ(port.fd(), -1);
    EXPECT_FALSE(port.isOpen());
    const int defaults[] = {115200, 8, 1, 0, 0, 0, 0};
    for (int attr = 0; attr < 7; ++attr) EXPECT_EQ(port.getAttribute(attr), defaults[attr]);
    EXPECT_EQ(port.getAttribute(7), -1);
    EXPECT_EQ(port.getAttribute(-1), -1);
    EXPECT_TRUE(port.close());
}

TEST(SerialPort, TakesLineSettingsWhileClosedAndRefusesOthers) {
    test::LogCapture::get().clear();
    SerialPort port;
    const int rates[] = {1200,   2400,   4800,   9600,   19200,  38400, 57600,
                         115200, 230400, 460800, 500000, 576000, 921600};
    for (int rate : rates) {
        EXPECT_EQ(port.setAttribute(SerialPort::BAUD, rate), 0) << rate;
        EXPECT_EQ(port.getAttribute(SerialPort::BAUD), rate);
    }
    EXPECT_EQ(port.setAttribute(0, 9600), 0);
    for (int rate : {14400, 300, 1000000, -9600, 0}) {
        EXPECT_EQ(port.setAttribute(0, rate), -1);
        EXPECT_EQ(lastLine("Unsupport baud"),
                  errorLine("setAttribute", "Unsupport baud:" + std::to_string(rate) + "."));
    }
    EXPECT_EQ(port.getAttribute(0), 9600);

    struct Refusal {
        int attr;
        int value;
        const char* text;
    };
    const Refusal refusals[] = {
        {1, 9, "Unsupport databits:9."},   {1, 4, "Unsupport databits:4."},
        {1, -1, "Unsupport databits:-1."}, {2, 0, "Unsupport stopbits:0."},
        {2, 3, "Unsupport stopbits:3."},   {3, 4, "Unsupport parity:4."},
        {3, -1, "Unsupport parity:-1."},   {4, 3, "Unsupport flowctrl:3."},
        {4, -2, "Unsupport flowctrl:-2."},
    };
    for (const Refusal& r : refusals) {
        int before = port.getAttribute(r.attr);
        EXPECT_EQ(port.setAttribute(r.attr, r.value), -1) << r.text;
        EXPECT_EQ(lastLine("Unsupport"), errorLine("setAttribute", r.text));
        EXPECT_EQ(port.getAttribute(r.attr), before);
    }
    EXPECT_EQ(port.setAttribute(1, 5), 0);
    EXPECT_EQ(port.setAttribute(2, 2), 0);
    EXPECT_EQ(port.setAttribute(3, 3), 0);
    EXPECT_EQ(port.setAttribute(4, 2), 0);
    EXPECT_EQ(port.getAttribute(1), 5);
    EXPECT_EQ(port.getAttribute(2), 2);
    EXPECT_EQ(port.getAttribute(3), 3);
    EXPECT_EQ(port.getAttribute(4), 2);

    // Unknown numbers are reported but succeed on a closed port.
    EXPECT_EQ(port.setAttribute(9, 1), 0);
    EXPECT_EQ(lastLine("Unsupport attribute"), errorLine("setAttribute", "Unsupport attribute:9."));
    EXPECT_EQ(port.setAttribute(-3, 1), 0);
    EXPECT_EQ(lastLine("Unsupport attribute"),
              errorLine("setAttribute", "Unsupport attribute:-3."));

    // Data mode and RS-485 direction need an open port.
    EXPECT_EQ(port.setAttribute(6, 1), -1);
    EXPECT_EQ(lastLine("not open"),
              errorLine("setAttribute", "Device is not open,cannot set attibute:6!"));
    EXPECT_EQ(port.setAttribute(5, 2), -1);
    EXPECT_EQ(lastLine("not open"),
              errorLine("setAttribute", "Device is not open,cannot set attibute:5!"));
    EXPECT_EQ(port.getAttribute(5), 0);
    EXPECT_EQ(port.getAttribute(6), 0);
}

TEST(SerialPort, OpensTheLineRawWithTheDefaults) {
    Pty pty;
    ASSERT_FALSE(pty.slavePath.empty());
    termios before = pty.pristine();
    pty.put("stale");  // pending input is flushed by open
    int fds = test::openFdCount();
    {
        SerialPort port;
        ASSERT_TRUE(port.open(pty.slavePath, 2));
        EXPECT_TRUE(port.isOpen());
        EXPECT_EQ(test::openFdCount(), fds + 1);

        termios tio = settingsOf(port);
        EXPECT_EQ(cfgetispeed(&tio), static_cast<speed_t>(B115200));
        EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B115200));
        EXPECT_EQ(tio.c_iflag, 0u);
        EXPECT_EQ(tio.c_oflag, before.c_oflag & ~static_cast<tcflag_t>(OPOST));
        EXPECT_EQ(tio.c_lflag,
                  before.c_lflag & ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE));
        const tcflag_t lineBits = CBAUD | CBAUDEX | CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS;
        EXPECT_EQ(tio.c_cflag & ~lineBits, (before.c_cflag & ~lineBits) | CREAD);
        EXPECT_EQ(tio.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
        EXPECT_EQ(tio.c_cflag & (CSTOPB | PARENB | PARODD | CRTSCTS), 0u);
        EXPECT_EQ(tio.c_cc[VTIME], 10);
        EXPECT_EQ(tio.c_cc[VMIN], 1);
        for (int i : {VINTR, VQUIT, VERASE, VKILL, VEOF, VSTART, VSTOP, VSUSP}) {
            EXPECT_EQ(tio.c_cc[i], before.c_cc[i]) << i;
        }
        int status = fcntl(port.fd(), F_GETFL);
        EXPECT_EQ(status & O_ACCMODE, O_RDWR);
        EXPECT_EQ(status & O_NONBLOCK, 0);
        EXPECT_NE(fcntl(port.fd(), F_GETFD) & FD_CLOEXEC, 0);

        char buf[16];
        EXPECT_EQ(port.recvData(buf, sizeof buf, 0), -2);  // "stale" was dropped
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(SerialPort, AppliesTheLineSettingsAtTheNextOpen) {
    Pty pty;
    ASSERT_FALSE(pty.slavePath.empty());
    SerialPort port;
    ASSERT_EQ(port.setAttribute(SerialPort::BAUD, 9600), 0);
    ASSERT_EQ(port.setAttribute(SerialPort::STOPBITS, 2), 0);
    ASSERT_EQ(port.setAttribute(SerialPort::PARITY, 1), 0);
    ASSERT_EQ(port.setAttribute(SerialPort::FLOWCTRL, 1), 0);
    ASSERT_TRUE(port.open(pty.slavePath, 2));
    termios tio = settingsOf(port);
    EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B9600));
    EXPECT_EQ(cfgetispeed(&tio), static_cast<speed_t>(B9600));
    EXPECT_NE(tio.c_cflag & CSTOPB, 0u);
    EXPECT_NE(tio.c_cflag & PARODD, 0u);  // a pty keeps PARENB cleared and CS8 forced
    EXPECT_NE(tio.c_cflag & CRTSCTS, 0u);
    ASSERT_TRUE(port.close());

    // Parity 3 clears the second stop bit; flow control 2 sets 0x1C00 in
    // c_cflag (HUPCL, CLOCAL and CBAUDEX) and keeps CRTSCTS as it was.
    ASSERT_EQ(port.setAttribute(SerialPort::BAUD, 921600), 0);
    ASSERT_EQ(port.setAttribute(SerialPort::PARITY, 3), 0);
    ASSERT_EQ(port.setAttribute(SerialPort::FLOWCTRL, 2), 0);
    ASSERT_TRUE(port.open(pty.slavePath, 2));
    tio = settingsOf(port);
    EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B921600));
    EXPECT_EQ(tio.c_cflag & CSTOPB, 0u);
    EXPECT_EQ(tio.c_cflag & 0x1C00u, 0x1C00u);
    EXPECT_NE(tio.c_cflag & CRTSCTS, 0u);
    EXPECT_EQ(tio.c_iflag & (IXON | IXANY | IXOFF), 0u);
    ASSERT_TRUE(port.close());
}

// A pseudo-terminal rewrites CSIZE and PARENB, so the bits it does not keep
// are checked on the settings as open() hands them to tcsetattr.
TEST(SerialPortTermios, SetsEveryBitOfEverySetting) {
    const tcflag_t ones = ~static_cast<tcflag_t>(0);
    const tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
    for (int databits = 4; databits <= 9; ++databits) {
        for (int stopbits = 0; stopbits <= 3; ++stopbits) {
            for (int parity = -1; parity <= 4; ++parity) {
                for (int flowctrl = -1; flowctrl <= 3; ++flowctrl) {
                    for (tcflag_t start : {static_cast<tcflag_t>(0), ones}) {
                        SCOPED_TRACE(::testing::Message()
                                     << databits << " " << stopbits << " " << parity << " "
                                     << flowctrl << " start " << start);
                        termios tio{};
                        tio.c_iflag = tio.c_oflag = tio.c_lflag = start;
                        tio.c_cflag = start & ~static_cast<tcflag_t>(CBAUD | CBAUDEX);
                        memset(tio.c_cc, 0x7F, sizeof tio.c_cc);
                        detail::serialRawTermios(&tio, B4800, databits, stopbits, parity, flowctrl);
                        // Flow control 2 also sets CBAUDEX, part of the speed bits.
                        tcflag_t speedBits = B4800 | (flowctrl == 2 ? CBAUDEX : 0);
                        EXPECT_EQ(tio.c_cflag & (CBAUD | CBAUDEX), speedBits);
                        EXPECT_EQ(tio.c_iflag, 0u);
                        EXPECT_EQ(tio.c_oflag, start & ~static_cast<tcflag_t>(OPOST));
                        EXPECT_EQ(tio.c_lflag,
                                  start & ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE));
                        tcflag_t size = databits >= 5 && databits <= 8 ? sizes[databits - 5] : CS8;
                        tcflag_t c = tio.c_cflag;
                        EXPECT_EQ(c & CSIZE, size);
                        EXPECT_NE(c & CREAD, 0u);
                        bool twoStops = stopbits == 2 && parity != 3;
                        EXPECT_EQ((c & CSTOPB) != 0, twoStops);
                        EXPECT_EQ((c & PARENB) != 0, parity == 1);
                        bool odd = parity == 1 || (parity != 2 && start != 0);
                        EXPECT_EQ((c & PARODD) != 0, odd);
                        bool rtscts = flowctrl == 1 || (flowctrl == 2 && start != 0);
                        EXPECT_EQ((c & CRTSCTS) != 0, rtscts);
                        const tcflag_t quirk = 0x1C00;
                        EXPECT_EQ((c & quirk) == quirk, flowctrl == 2);
                        const tcflag_t hupclClocal = HUPCL | CLOCAL;
                        EXPECT_EQ((c & hupclClocal) == hupclClocal, flowctrl == 2 || start != 0);
                        EXPECT_EQ(tio.c_cc[VTIME], 10);
                        EXPECT_EQ(tio.c_cc[VMIN], 1);
                        EXPECT_EQ(tio.c_cc[VINTR], 0x7F);
                    }
                }
            }
        }
    }
    speed_t speed = 0;
    EXPECT_TRUE(detail::serialBaudSpeed(576000, &speed));
    EXPECT_EQ(speed, static_cast<speed_t>(B576000));
    EXPECT_FALSE(detail::serialBaudSpeed(1000000, &speed));
    EXPECT_FALSE(detail::serialBaudSpeed(300, &speed));
}

TEST(SerialPort, ExchangesRawBytesWithThePeerAndTimesOut) {
    Pty pty;
    ASSERT_FALSE(pty.slavePath.empty());
    SerialPort port;
    ASSERT_TRUE(port.open(pty.slavePath, 2));

    // Raw both ways: CR, LF, NUL and control characters pass unchanged.
    const std::string request("AT\r\n\x00\x03\x7f\xff", 8);
    EXPECT_EQ(port.sendData(request.data(), static_cast<int>(request.size()), 1000000), 8);
    EXPECT_EQ(pty.take(8), request);

    pty.put(std::string("ok\r\x00\x11", 5));
    char buf[16] = {};
    EXPECT_EQ(port.recvData(buf, 2, 1000000), 2);  // one read of at most len bytes
    EXPECT_EQ(std::string(buf, 2), "ok");
    EXPECT_EQ(port.recvData(buf, sizeof buf, 1000000), 3);
    EXPECT_EQ(std::string(buf, 3), std::string("\r\x00\x11", 3));

    // Nothing pending: a zero timeout returns at once, a short one after it.
    auto start = Clock::now();
    EXPECT_EQ(port.recvData(buf, sizeof buf, 0), -2);
    EXPECT_EQ(port.recvData(buf, sizeof buf, 100000), -2);
    auto waited = Clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(95));
    EXPECT_LT(waited, std::chrono::seconds(3));

    // A negative timeout waits until the data comes.
    std::thread peer([&pty] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        pty.put("late");
    });
    EXPECT_EQ(port.recvData(buf, sizeof buf, -1), 4);
    peer.join();
    EXPECT_EQ(std::string(buf, 4), "late");
}

TEST(SerialPort, OpensForReadingOrWritingOnly) {
    Pty pty;
    ASSERT_FALSE(pty.slavePath.empty());
    int fds = test::openFdCount();
    {
        SerialPort reader;
        ASSERT_TRUE(reader.open(pty.slavePath, 0));
        EXPECT_EQ(fcntl(reader.fd(), F_GETFL) & O_ACCMODE, O_RDONLY);
        pty.put("x");
        char c = 0;
        EXPECT_EQ(reader.recvData(&c, 1, 1000000), 1);
        EXPECT_EQ(c, 'x');
        // The write itself fails on a read-only descriptor: -1 from the system call.
        EXPECT_EQ(reader.sendData("y", 1, 1000000), -1);

        SerialPort writer;
        ASSERT_TRUE(writer.open(pty.slavePath, 1));
        int status = fcntl(writer.fd(), F_GETFL);
        EXPECT_EQ(status & O_ACCMODE, O_WRONLY);
        EXPECT_EQ(status & O_SYNC, O_SYNC);
        EXPECT_EQ(writer.sendData("z", 1, 1000000), 1);
        EXPECT_EQ(pty.take(1), "z");
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(SerialPort, RefusesBadOpensAndDataCallsWithoutLeaking) {
    test::LogCapture::get().clear();
    int fds = test::openFdCount();
    {
        SerialPort port;
        EXPECT_FALSE(port.open("", 2));
        EXPECT_EQ(lastLine("Parameter"), errorLine("open", "Parameter error."));
        for (int mode : {3, -1, 7}) {
            EXPECT_FALSE(port.open("/dev/null", mode));
            EXPECT_EQ(lastLine("Parameter"), errorLine("open", "Parameter error."));
        }
        EXPECT_FALSE(port.open("/nonexistent/ttyS9", 2));
        EXPECT_EQ(lastLine("Open"),
                  errorLine("open", "Open /nonexistent/ttyS9 error: No such file or directory"));
        EXPECT_EQ(port.fd(), -1);

        char buf[8] = {};
        EXPECT_EQ(port.recvData(buf, sizeof buf, 0), -1);
        EXPECT_EQ(lastLine("parameter"), errorLine("recvData", "parameter error."));
        EXPECT_EQ(port.sendData("a", 1, 0), -1);
        EXPECT_EQ(lastLine("parameter"), errorLine("sendData", "parameter error."));

        // Not a tty: the device opens, the settings cannot be applied, and the
        // port stays open until it is closed.
        EXPECT_FALSE(port.open("/dev/null", 2));
        EXPECT_EQ(lastLine("attribute"), errorLine("open", "Can't set attribute!"));
        EXPECT_TRUE(port.isOpen());
        EXPECT_EQ(test::openFdCount(), fds + 1);
        EXPECT_FALSE(port.open("/dev/null", 2));
        EXPECT_EQ(lastLine("already"), errorLine("open", "Device is already opened!"));

        EXPECT_EQ(port.recvData(nullptr, 4, 0), -1);
        EXPECT_EQ(lastLine("parameter"), errorLine("recvData", "parameter error."));
        EXPECT_EQ(port.sendData(nullptr, 4, 0), -1);
        EXPECT_EQ(lastLine("parameter"), errorLine("sendData", "parameter error."));
        EXPECT_EQ(port.recvData(buf, 0, 0), -1);
        EXPECT_EQ(lastLine("parameter"), errorLine("recvData", "parameter error."));
        EXPECT_EQ(port.sendData(buf, -5, 0), -1);
        EXPECT_EQ(lastLine("parameter"), errorLine("sendData", "parameter error."));
        EXPECT_EQ(port.sendData("abc", 3, 0), 3);  // /dev/null swallows it

        EXPECT_TRUE(port.close());
        EXPECT_EQ(port.fd(), -1);
        EXPECT_EQ(test::openFdCount(), fds);
        EXPECT_TRUE(port.close());

        // Left open on purpose: the destructor closes it.
        EXPECT_FALSE(port.open("/dev/null", 0));
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(SerialPort, SwitchesRs485ThroughTheDriverOnlyWhileOpen) {
    Pty pty;
    ASSERT_FALSE(pty.slavePath.empty());
    struct Call {
        unsigned long request;
        serial_rs485 settings;
        int value;
        int result;
    };
    std::vector<Call> calls;
    // Records each request and passes it on: a pty refuses both.
    test::IoctlSpy spy(pty.slavePath, [&calls](int fd, unsigned long request, void* arg) {
        Call call{request, {}, 0, 0};
        if (request == TIOCSRS485) {
            call.settings = *static_cast<serial_rs485*>(arg);
        } else {
            call.value = static_cast<int>(reinterpret_cast<intptr_t>(arg));
        }
        call.result = test::IoctlSpy::realIoctl(fd, request, arg);
        calls.push_back(call);
        return call.result;
    });
    test::LogCapture::get().clear();
    SerialPort port;
    ASSERT_TRUE(port.open(pty.slavePath, 2));

    EXPECT_EQ(port.setAttribute(SerialPort::DATAMODE, 1), 0);
    EXPECT_TRUE(calls.empty());  // modes 0 and 1 are only stored
    EXPECT_EQ(port.setAttribute(SerialPort::DATAMODE, 2), 0);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].request, static_cast<unsigned long>(TIOCSRS485));
    EXPECT_EQ(calls[0].settings.flags, static_cast<uint32_t>(SER_RS485_ENABLED));
    EXPECT_EQ(calls[0].settings.delay_rts_before_send, 0u);
    EXPECT_EQ(calls[0].settings.delay_rts_after_send, 0u);
    EXPECT_EQ(calls[0].result, -1);
    EXPECT_EQ(port.getAttribute(SerialPort::DATAMODE), 2);

    EXPECT_EQ(port.setAttribute(SerialPort::RS485DIR, 1), 0);
    EXPECT_EQ(port.setAttribute(SerialPort::RS485DIR, 0), 0);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].request, 16u);
    EXPECT_EQ(calls[1].value, 1);
    EXPECT_EQ(calls[1].result, -1);
    EXPECT_EQ(calls[2].request, 16u);
    EXPECT_EQ(calls[2].value, 0);
    EXPECT_EQ(port.getAttribute(SerialPort::RS485DIR), 0);
    EXPECT_TRUE(test::LogCapture::get().matching("SerialPort").empty());

    EXPECT_EQ(port.setAttribute(SerialPort::DATAMODE, 3), -1);
    EXPECT_EQ(lastLine("datamode"), errorLine("setAttribute", "Unsupport datamode:3."));
    EXPECT_EQ(port.setAttribute(SerialPort::DATAMODE, -1), -1);
    EXPECT_EQ(lastLine("datamode"), errorLine("setAttribute", "Unsupport datamode:-1."));
    EXPECT_EQ(port.setAttribute(SerialPort::RS485DIR, 2), -1);
    EXPECT_EQ(lastLine("rs485dir"), errorLine("setAttribute", "Unsupport rs485dir:2."));
    EXPECT_EQ(calls.size(), 3u);

    // Line settings and unknown numbers are refused while open.
    EXPECT_EQ(port.setAttribute(SerialPort::BAUD, 9600), -1);
    EXPECT_EQ(lastLine("allready"),
              errorLine("setAttribute", "Device is allready open, cannot set attribute:0!"));
    EXPECT_EQ(port.setAttribute(9, 1), -1);
    EXPECT_EQ(lastLine("allready"),
              errorLine("setAttribute", "Device is allready open, cannot set attribute:9!"));
    EXPECT_EQ(port.getAttribute(SerialPort::BAUD), 115200);

    ASSERT_TRUE(port.close());
    EXPECT_EQ(port.getAttribute(SerialPort::DATAMODE), 2);  // kept, but acts only when set
    EXPECT_EQ(port.setAttribute(SerialPort::RS485DIR, 1), -1);
    EXPECT_EQ(calls.size(), 3u);
}

TEST(SerialPort, WaitsOnDescriptorsAboveTheSelectLimit) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < FD_SETSIZE + 64) {
        GTEST_SKIP() << "needs " << FD_SETSIZE + 64 << " descriptors, the limit is "
                     << limit.rlim_cur;
    }
    Pty pty;
    ASSERT_FALSE(pty.slavePath.empty());
    // Fill the low descriptors so that the port gets one above FD_SETSIZE.
    std::vector<int> fillers;
    while (fillers.empty() || fillers.back() < FD_SETSIZE) {
        int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        fillers.push_back(fd);
    }
    SerialPort port;
    bool opened = port.open(pty.slavePath, 2);
    for (int fd : fillers) ::close(fd);
    ASSERT_TRUE(opened);
    ASSERT_GE(port.fd(), FD_SETSIZE);

    char buf[8] = {};
    EXPECT_EQ(port.recvData(buf, sizeof buf, 20000), -2);
    pty.put("hi");
    EXPECT_EQ(port.recvData(buf, sizeof buf, 1000000), 2);
    EXPECT_EQ(std::string(buf, 2), "hi");
    EXPECT_EQ(port.sendData("yo", 2, 1000000), 2);
    EXPECT_EQ(pty.take(2), "yo");
}

// socat joins two pseudo-terminals; one port opens each end.
class SocatLink {
  public:
    SocatLink() : dir(test::tempPath("socat")) {
        ends[0] = dir + "/a";
        ends[1] = dir + "/b";
        if (!installed() || mkdir(dir.c_str(), 0700) != 0) return;
        std::string a = "pty,raw,echo=0,link=" + ends[0];
        std::string b = "pty,raw,echo=0,link=" + ends[1];
        char* argv[] = {const_cast<char*>("socat"), const_cast<char*>(a.c_str()),
                        const_cast<char*>(b.c_str()), nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        if (posix_spawnp(&pid, "socat", &actions, nullptr, argv, environ) != 0) pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        auto deadline = Clock::now() + std::chrono::seconds(5);
        while (pid > 0 && Clock::now() < deadline) {
            if (access(ends[0].c_str(), F_OK) == 0 && access(ends[1].c_str(), F_OK) == 0) {
                ready = true;
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~SocatLink() {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
        unlink(ends[0].c_str());
        unlink(ends[1].c_str());
        rmdir(dir.c_str());
    }

    static bool installed() {
        return access("/usr/bin/socat", X_OK) == 0 || access("/bin/socat", X_OK) == 0;
    }

    const std::string dir;
    std::string ends[2];
    pid_t pid = -1;
    bool ready = false;
};

// Receives until `count` bytes came, a timeout or an error.
std::string receive(SerialPort& port, size_t count) {
    std::string got;
    char buf[32];
    while (got.size() < count) {
        int n = port.recvData(buf, sizeof buf, 2000000);
        if (n <= 0) break;
        got.append(buf, static_cast<size_t>(n));
    }
    return got;
}

TEST(SerialPort, ExchangesDataWithAnExternalPeerThroughSocat) {
    if (!SocatLink::installed()) GTEST_SKIP() << "socat is not installed";
    int fds = test::openFdCount();
    {
        SocatLink link;
        ASSERT_TRUE(link.ready) << "socat did not create " << link.ends[0];
        SerialPort controller;
        SerialPort device;
        ASSERT_EQ(controller.setAttribute(SerialPort::BAUD, 9600), 0);
        ASSERT_TRUE(controller.open(link.ends[0], 2));
        ASSERT_TRUE(device.open(link.ends[1], 2));

        const std::string request("\xA5\x01\x02\r\n\x00", 6);
        EXPECT_EQ(controller.sendData(request.data(), 6, 1000000), 6);
        EXPECT_EQ(receive(device, request.size()), request);
        EXPECT_EQ(device.sendData("pong", 4, 1000000), 4);
        EXPECT_EQ(receive(controller, 4), "pong");
        char buf[8];
        EXPECT_EQ(controller.recvData(buf, sizeof buf, 50000), -2);
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

}  // namespace
}  // namespace orvane
