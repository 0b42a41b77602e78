#include "device/SerialTermios.h"

#include <cstdio>

namespace orvane {
namespace detail {

namespace {

struct SpeedEntry {
    int baud;
    speed_t speed;
};

// Every rate Linux has a constant for (the attribute table of open() holds
// 13 of them).
constexpr SpeedEntry kSpeeds[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},
    {150, B150},         {200, B200},         {300, B300},         {600, B600},
    {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
    {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
    {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000},
};

constexpr tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};

tcflag_t clear(tcflag_t bits) { return ~bits; }

}  // namespace

bool lineSpeed(int baud, speed_t* speed) {
    for (const SpeedEntry& entry : kSpeeds) {
        if (entry.baud == baud) {
            *speed = entry.speed;
            return true;
        }
    }
    return false;
}

int lineBaud(speed_t speed) {
    for (const SpeedEntry& entry : kSpeeds) {
        if (entry.speed == speed) return entry.baud;
    }
    return -1;
}

bool lineTermios(const SerialPort::LineSettings& line, termios* tio, std::string* error) {
    using Parity = SerialPort::LineSettings::Parity;
    using Flow = SerialPort::LineSettings::Flow;
    char reason[64] = "";
    speed_t speed = B0;
    if (!lineSpeed(line.baud, &speed)) {
        snprintf(reason, sizeof reason, "unsupported baud rate %d", line.baud);
    } else if (line.dataBits < 5 || line.dataBits > 8) {
        snprintf(reason, sizeof reason, "unsupported data bits %d", line.dataBits);
    } else if (line.stopBits != 1 && line.stopBits != 2) {
        snprintf(reason, sizeof reason, "unsupported stop bits %d", line.stopBits);
    } else if (line.parity != Parity::None && line.parity != Parity::Odd &&
               line.parity != Parity::Even) {
        snprintf(reason, sizeof reason, "unsupported parity %d", static_cast<int>(line.parity));
    } else if (line.flow != Flow::None && line.flow != Flow::Hardware &&
               line.flow != Flow::Software) {
        snprintf(reason, sizeof reason, "unsupported flow control %d", static_cast<int>(line.flow));
    }
    if (reason[0] != '\0') {
        *error = reason;
        return false;
    }
    cfsetispeed(tio, speed);
    cfsetospeed(tio, speed);
    tio->c_iflag = 0;
    if (line.parity != Parity::None) tio->c_iflag |= INPCK;
    if (line.flow == Flow::Software) tio->c_iflag |= IXON | IXOFF;
    tio->c_oflag &= clear(OPOST);
    tio->c_cflag &= clear(CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS);
    tio->c_cflag |= CREAD | CLOCAL | kSizes[line.dataBits - 5];
    if (line.stopBits == 2) tio->c_cflag |= CSTOPB;
    if (line.parity == Parity::Odd) tio->c_cflag |= PARENB | PARODD;
    if (line.parity == Parity::Even) tio->c_cflag |= PARENB;
    if (line.flow == Flow::Hardware) tio->c_cflag |= CRTSCTS;
    tio->c_lflag &= clear(ISIG | ICANON | ECHO | ECHOE | ECHONL | IEXTEN);
    tio->c_cc[VTIME] = 10;
    tio->c_cc[VMIN] = 1;
    return true;
}

SerialPort::LineSettings lineOf(const termios& tio) {
    using Parity = SerialPort::LineSettings::Parity;
    using Flow = SerialPort::LineSettings::Flow;
    SerialPort::LineSettings line;
    line.baud = lineBaud(cfgetospeed(&tio));
    line.dataBits = 8;
    for (int bits = 5; bits <= 8; ++bits) {
        if ((tio.c_cflag & CSIZE) == kSizes[bits - 5]) line.dataBits = bits;
    }
    line.stopBits = (tio.c_cflag & CSTOPB) ? 2 : 1;
    line.parity = !(tio.c_cflag & PARENB)  ? Parity::None
                  : (tio.c_cflag & PARODD) ? Parity::Odd
                                           : Parity::Even;
    line.flow = (tio.c_cflag & CRTSCTS)          ? Flow::Hardware
                : (tio.c_iflag & (IXON | IXOFF)) ? Flow::Software
                                                 : Flow::None;
    return line;
}

}  // namespace detail
}  // namespace orvane
