#include <orvane/SerialPort.h>
#include <termios.h>

#include <cerrno>
#include <cstring>

#include "device/SerialTermios.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

// The open port's termios into *tio; a failure is logged for `method` of
// `className`.
bool currentTermios(const std::string& className, const char* method, int fd, termios* tio) {
    if (tcgetattr(fd, tio) == 0) return true;
    int err = errno;
    ORVANE_ERROR_IN(method, "tcgetattr error: %s", strerror(err));
    return false;
}

}  // namespace

bool SerialPort::setLine(const LineSettings& line) {
    if (!isOpen()) {
        ORVANE_ERROR("Device is not open, cannot set line %s", lineText(line).c_str());
        return false;
    }
    termios tio{};
    if (!currentTermios(className, __func__, fd_.get(), &tio)) return false;
    std::string error;
    if (!detail::lineTermios(line, &tio, &error)) {
        ORVANE_ERROR("%s", error.c_str());
        return false;
    }
    if (tcsetattr(fd_.get(), TCSANOW, &tio) != 0) {
        int err = errno;
        ORVANE_ERROR("Can't set line %s: %s", lineText(line).c_str(), strerror(err));
        return false;
    }
    return true;
}

bool SerialPort::getLine(LineSettings* line) {
    if (line == nullptr || !isOpen()) {
        ORVANE_ERROR("parameter error.");
        return false;
    }
    termios tio{};
    if (!currentTermios(className, __func__, fd_.get(), &tio)) return false;
    *line = detail::lineOf(tio);
    return true;
}

std::string SerialPort::lineText(const LineSettings& line) {
    static const char kParity[] = {'N', 'O', 'E'};
    static const char* const kFlow[] = {"none", "hw", "sw"};
    auto parity = static_cast<unsigned>(line.parity);
    auto flow = static_cast<unsigned>(line.flow);
    char text[64];
    snprintf(text, sizeof text, "%d %d%c%d flow %s", line.baud, line.dataBits,
             parity < 3 ? kParity[parity] : '?', line.stopBits, flow < 3 ? kFlow[flow] : "?");
    return text;
}

}  // namespace orvane
