#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "Gateway.h"

namespace gateway {

namespace {

constexpr char kEcho = 0x01;
constexpr char kStatus = 0x02;

}  // namespace

SimulatedDevice::SimulatedDevice() : loop("gw-device"), started(orvane::Time::fromMono()) {}

SimulatedDevice::~SimulatedDevice() { stop(); }

bool SimulatedDevice::open() {
    master.reset(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    char name[64] = "";
    if (!master || grantpt(master.get()) != 0 || unlockpt(master.get()) != 0 ||
        ptsname_r(master.get(), name, sizeof name) != 0) {
        int err = errno;
        ORVANE_LOG_ERROR("SimulatedDevice", "cannot create a pseudo-terminal: %s", strerror(err));
        master.reset();
        return false;
    }
    slavePath = name;
    stat.updateStat();  // the first CPU sample, so the first status has a span to measure
    return true;
}

bool SimulatedDevice::start() {
    if (!loop.watch(master.get(), orvane::EventLoop::READABLE,
                    [this](int fd, unsigned events) { onReadable(fd, events); })) {
        return false;
    }
    ORVANE_LOG_INFO("SimulatedDevice", "simulated device on %s", slavePath.c_str());
    return loop.start();
}

void SimulatedDevice::stop() { loop.stop(); }

void SimulatedDevice::onReadable(int fd, unsigned events) {
    char buf[1024];
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EAGAIN) return;
    if (n <= 0) {
        // The port side closed its end: nothing to serve until it opens again.
        ORVANE_LOG_DEBUG("SimulatedDevice", "port side closed (events 0x%X)", events);
        loop.unwatch(fd);
        return;
    }
    for (const std::string& frame : parser.parse(std::string(buf, size_t(n)))) {
        std::string request = codec.decode(frame);  // a bad frame is logged there
        if (request.empty()) continue;
        std::string out = codec.encode(answer(request));
        if (::write(fd, out.data(), out.size()) != ssize_t(out.size())) {
            int err = errno;
            ORVANE_LOG_ERROR("SimulatedDevice", "answer not written: %s", strerror(err));
        }
    }
}

std::string SimulatedDevice::answer(const std::string& request) {
    if (request[0] == kEcho) return request;
    if (request[0] != kStatus) {
        ORVANE_LOG_WARN("SimulatedDevice", "unknown command 0x%02X",
                        static_cast<unsigned char>(request[0]));
        return errorPayload(kUnknownCommand);
    }
    stat.updateStat();
    std::vector<float> usages = stat.cpuUsages(-1);
    double cpu = usages.empty() || !std::isfinite(usages.back()) ? 0.0 : usages.back();
    char text[128];
    snprintf(text, sizeof text, "up %.1f s, cpu %.1f%%, mem %d of %d kB free",
             double(orvane::Time::usSinceMono(started)) / 1e6, cpu, stat.memFree(),
             stat.memTotal());
    return std::string(1, kStatus) + text;
}

}  // namespace gateway
