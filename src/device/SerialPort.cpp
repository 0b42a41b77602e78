#include <fcntl.h>
#include <linux/serial.h>
#include <orvane/SerialPort.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "device/SerialTermios.h"
#include "io/WaitFd.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

// The rates the baud attribute accepts; their termios constants come from
// the table of every line rate (detail::lineSpeed).
constexpr int kBaudTable[] = {1200,   2400,   4800,   9600,   19200,  38400, 57600,
                              115200, 230400, 460800, 500000, 576000, 921600};

// The accepted values of each attribute, as its messages name it; the baud
// rate is checked against kBaudTable instead.
struct AttributeRange {
    const char* name;
    unsigned int lowest;
    unsigned int highest;
};

constexpr AttributeRange kRanges[] = {
    {"baud", 0, 0},     {"databits", 5, 8}, {"stopbits", 1, 2}, {"parity", 0, 3},
    {"flowctrl", 0, 2}, {"datamode", 0, 2}, {"rs485dir", 0, 1},
};

constexpr int kAttributeCount = sizeof(kRanges) / sizeof(kRanges[0]);

// The driver request that takes the RS-485 direction as its argument.
constexpr unsigned long kRs485DirRequest = 16;

// Flow control 2 writes the numeric value of IXON | IXANY | IXOFF into c_cflag.
constexpr tcflag_t kFlowCtrl2Bits = 0x1C00;

// The pure parts of open(): the termios speed of a rate in the baud table
// (false for any other rate), and the raw line configuration made from what
// tcgetattr gave. Deliberate quirks kept bit for bit: parity 2 enables no
// parity bit, parity 3 also clears CSTOPB, and flow control 2 ORs 0x1C00 (the
// value of IXON | IXANY | IXOFF) into c_cflag, where it means HUPCL | CLOCAL |
// CBAUDEX.
bool serialBaudSpeed(int baud, speed_t* speed) {
    return std::find(std::begin(kBaudTable), std::end(kBaudTable), baud) != std::end(kBaudTable) &&
           detail::lineSpeed(baud, speed);
}

void serialRawTermios(termios* tio, speed_t speed, int databits, int stopbits, int parity,
                      int flowctrl) {
    cfsetispeed(tio, speed);
    cfsetospeed(tio, speed);
    tio->c_iflag = 0;
    tio->c_oflag &= ~static_cast<tcflag_t>(OPOST);
    tio->c_cflag &= ~static_cast<tcflag_t>(CSIZE);
    tio->c_cflag |= CREAD;
    switch (databits) {
        case 5:
            tio->c_cflag |= CS5;
            break;
        case 6:
            tio->c_cflag |= CS6;
            break;
        case 7:
            tio->c_cflag |= CS7;
            break;
        default:
            tio->c_cflag |= CS8;
            break;
    }
    if (stopbits == 2) {
        tio->c_cflag |= CSTOPB;
    } else {
        tio->c_cflag &= ~static_cast<tcflag_t>(CSTOPB);
    }
    switch (parity) {
        case 1:
            tio->c_cflag |= PARENB | PARODD;
            break;
        case 2:
            tio->c_cflag &= ~static_cast<tcflag_t>(PARENB | PARODD);
            break;
        case 3:
            tio->c_cflag &= ~static_cast<tcflag_t>(PARENB | CSTOPB);
            break;
        default:
            tio->c_cflag &= ~static_cast<tcflag_t>(PARENB);
            break;
    }
    if (flowctrl == 1) {
        tio->c_cflag |= CRTSCTS;
    } else if (flowctrl == 2) {
        tio->c_cflag |= kFlowCtrl2Bits;
    } else {
        tio->c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    }
    tio->c_lflag &= ~static_cast<tcflag_t>(ISIG | ICANON | ECHO | ECHOE);
    tio->c_cc[VTIME] = 10;
    tio->c_cc[VMIN] = 1;
}

bool accepted(int attr, int value) {
    if (attr == SerialPort::BAUD) {
        speed_t speed;
        return serialBaudSpeed(value, &speed);
    }
    auto v = static_cast<unsigned int>(value);  // negative values are refused
    return v >= kRanges[attr].lowest && v <= kRanges[attr].highest;
}

}  // namespace

SerialPort::SerialPort() : className("SerialPort"), attributes{115200, 8, 1, 0, 0, 0, 0} {}

SerialPort::~SerialPort() { close(); }

bool SerialPort::open(const std::string& path, int mode) {
    if (path.empty() || static_cast<unsigned int>(mode) > 2) {
        ORVANE_ERROR("Parameter error.");
        return false;
    }
    if (fd_.valid()) {
        ORVANE_ERROR("Device is already opened!");
        return false;
    }
    // Blocking I/O and no O_NOCTTY, as the line discipline expects.
    static const int kOpenFlags[] = {O_RDONLY | O_CLOEXEC, O_WRONLY | O_SYNC | O_CLOEXEC,
                                     O_RDWR | O_SYNC | O_CLOEXEC};
    fd_.reset(::open(path.c_str(), kOpenFlags[mode]));
    if (!fd_) {
        int err = errno;
        ORVANE_ERROR("Open %s error: %s", path.c_str(), strerror(err));
        return false;
    }
    devName = path;
    ioMode = mode;
    termios tio{};
    tcgetattr(fd_.get(), &tio);
    speed_t speed;
    if (!serialBaudSpeed(attributes[BAUD], &speed)) {
        ORVANE_ERROR("unsupport baud rate: %d", attributes[BAUD]);
        return false;
    }
    serialRawTermios(&tio, speed, attributes[DATABITS], attributes[STOPBITS], attributes[PARITY],
                     attributes[FLOWCTRL]);
    tcflush(fd_.get(), TCIFLUSH);
    if (tcsetattr(fd_.get(), TCSANOW, &tio) != 0) {
        ORVANE_ERROR("Can't set attribute!");
        return false;
    }
    fcntl(fd_.get(), F_SETFL, 0);
    return true;
}

bool SerialPort::close() { return IODevice::close(); }

int SerialPort::setAttribute(int attr, int value) {
    bool live = attr == DATAMODE || attr == RS485DIR;
    if (live && !isOpen()) {
        ORVANE_ERROR("Device is not open,cannot set attibute:%d!", attr);
        return -1;
    }
    if (!live && fd_.valid()) {
        ORVANE_ERROR("Device is allready open, cannot set attribute:%d!", attr);
        return -1;
    }
    if (static_cast<unsigned int>(attr) >= kAttributeCount) {
        ORVANE_ERROR("Unsupport attribute:%d.", attr);
        return 0;
    }
    if (!accepted(attr, value)) {
        ORVANE_ERROR("Unsupport %s:%d.", kRanges[attr].name, value);
        return -1;
    }
    attributes[attr] = value;
    // The driver's answers are not checked: a line without RS-485 support
    // keeps working as a plain serial line.
    if (attr == DATAMODE && value == 2) {
        serial_rs485 rs485{};
        rs485.flags = SER_RS485_ENABLED;
        ioctl(fd_.get(), TIOCSRS485, &rs485);
    } else if (attr == RS485DIR) {
        ioctl(fd_.get(), kRs485DirRequest, value);
    }
    return 0;
}

int SerialPort::getAttribute(int attr) {
    if (static_cast<unsigned int>(attr) >= kAttributeCount) return -1;
    return attributes[attr];
}

int SerialPort::recvData(char* buf, int len, int timeoutUs) {
    return exchange(buf, nullptr, len, timeoutUs, __func__);
}

int SerialPort::sendData(const char* data, int len, int timeoutUs) {
    return exchange(nullptr, data, len, timeoutUs, __func__);
}

bool SerialPort::isHungUp() {
    if (!fd_) return false;
    pollfd line{fd_.get(), POLLIN, 0};
    int n = 0;
    do {
        n = ::poll(&line, 1, 0);
    } while (n < 0 && errno == EINTR);
    return n > 0 && (line.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

// One wait and one read into `in` or write from `out`.
int SerialPort::exchange(char* in, const char* out, int len, int timeoutUs, const char* method) {
    if ((in == nullptr && out == nullptr) || len < 1 || !fd_) {
        ORVANE_ERROR_IN(method, "parameter error.");
        return -1;
    }
    int ready =
        detail::awaitFd(className, method, fd_.get(), out != nullptr, timeoutUs, "fd is not set.");
    if (ready < 0) return ready;
    ssize_t n = out != nullptr ? ::write(fd_.get(), out, static_cast<size_t>(len))
                               : ::read(fd_.get(), in, static_cast<size_t>(len));
    return static_cast<int>(n);
}

}  // namespace orvane
