#include "SerialLogger.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace logger {

namespace {

constexpr const char* kTag = "SerialLogger";
constexpr int kMaxLine = 4096;  // a longer line is logged in pieces of this size

}  // namespace

SerialLogger::SerialLogger(const Options& options_) : options(options_) {
    className = "SerialLogger";
    pending.init(2 * kMaxLine);  // at least kMaxLine + 3, see LineBuffer::takeLine
}

bool SerialLogger::onStart() {
    if (!orvane::Directory::createDir(options.dir, 0755, true) || !openLog()) {
        ORVANE_LOG_ERROR(kTag, "cannot write the log in %s", options.dir.c_str());
        return false;
    }
    if (!status.open(options.statusHost, options.statusPort)) {
        ORVANE_LOG_ERROR(kTag, "cannot serve status on %s:%u", options.statusHost.c_str(),
                         options.statusPort);
        return false;
    }
    ORVANE_LOG_INFO(kTag, "status on %s:%u", options.statusHost.c_str(), status.localPort());
    loop.watch(status.fd(), orvane::EventLoop::READABLE, [this](int, unsigned) { onStatus(); });
    openPort();
    if (!port.isOpen()) {
        ORVANE_LOG_WARN(kTag, "%s is not there yet, waiting for it", options.serialPath.c_str());
        gone = true;
    }
    loop.addTimer(1000, 1000, [this] { everySecond(); });
    if (options.runForS > 0) {
        // Ends as SIGTERM would, through the same callback.
        loop.addTimer(std::max(1, int(options.runForS * 1000)), 0, [] { kill(getpid(), SIGTERM); });
    }
    return loop.start();
}

bool SerialLogger::onStop() {
    // Posted before stop(), so it runs before the loop ends: the bytes that
    // came before the signal reach the log.
    loop.post([this] {
        while (port.isOpen() && readPort(0)) {
        }
    });
    loop.stop();
    return true;
}

void SerialLogger::openPort() {
    // Checked first so that a device that is away costs no error line a second.
    if (!orvane::File::exists(options.serialPath)) return;
    orvane::SerialPort::LineSettings line;
    if (!port.open(options.serialPath, orvane::IO_READ) || !port.setLine(options.line) ||
        !port.getLine(&line)) {
        port.close();
        return;
    }
    loop.watch(port.fd(), orvane::EventLoop::READABLE,
               [this](int, unsigned events) { readPort(events); });
    ORVANE_LOG_INFO(kTag, "%s %s, %s", options.serialPath.c_str(), gone ? "is back" : "open",
                    orvane::SerialPort::lineText(line).c_str());
    gone = false;
}

void SerialLogger::closePort() {
    loop.unwatch(port.fd());
    port.close();
    pending.clear();  // a line cut off by the device's departure has no end
    gone = true;
    ORVANE_LOG_WARN(kTag, "%s is gone, retrying every second", options.serialPath.c_str());
}

bool SerialLogger::readPort(unsigned events) {
    char buf[kMaxLine];
    int room = std::min<int>(pending.space(), sizeof buf);
    int n = port.recvData(buf, room, 0);
    if (n > 0) {
        pending.putData(buf, n);
        std::string line;
        while (pending.takeLine(&line, '\n', true, kMaxLine)) write(line);
        return true;
    }
    // 0 or -1: the line hung up; -2: nothing to read, unless it hung up too.
    if (n != -2 || (events & orvane::EventLoop::HANGUP) != 0 || port.isHungUp()) closePort();
    return false;
}

void SerialLogger::everySecond() {
    if (!port.isOpen()) {
        openPort();
    } else if (port.isHungUp() || !orvane::File::exists(options.serialPath)) {
        closePort();
    }
}

void SerialLogger::onStatus() {
    char request[64];
    int n = status.readData(request, sizeof request);
    if (n < 0) return;
    std::string text(request, size_t(n));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    char reply[128];
    if (text == "status") {
        snprintf(reply, sizeof reply, "lines=%llu uptime=%lld device=%s",
                 static_cast<unsigned long long>(lines_.load()),
                 static_cast<long long>(orvane::Time::usSinceMono(started) / 1000000),
                 port.isOpen() ? "up" : "gone");
    } else {
        snprintf(reply, sizeof reply, "error: unknown request (try 'status')");
    }
    status.writeData(reply, int(strlen(reply)));
}

void SerialLogger::write(const std::string& line) {
    std::string entry = orvane::DateTime::getDateTime().toString(true) + ' ' + line + '\n';
    if (logSize > 0 && logSize + long(entry.size()) > options.maxBytes) rotate();
    if (log.writeData(entry.data(), int(entry.size())) == int(entry.size())) {
        logSize += long(entry.size());
        ++lines_;
    }
}

bool SerialLogger::openLog() {
    std::string path = options.dir + "/serial.log";
    if (!log.open(path, orvane::IO_CREATE_APPEND)) return false;
    logSize = long(orvane::File::getSize(path));
    return true;
}

// serial.log becomes serial.log.1 and the older ones move up one; the move
// onto serial.log.<keep> replaces, and so drops, the oldest.
void SerialLogger::rotate() {
    std::string base = options.dir + "/serial.log";
    log.close();
    for (int i = options.keep - 1; i >= 1; --i) {
        std::string from = base + "." + std::to_string(i);
        if (orvane::File::exists(from))
            orvane::File::replace(from, base + "." + std::to_string(i + 1));
    }
    if (options.keep > 0) {
        orvane::File::replace(base, base + ".1");
    } else {
        orvane::File::remove(base);
    }
    if (!openLog()) ORVANE_LOG_ERROR(kTag, "cannot reopen %s", base.c_str());
}

}  // namespace logger
