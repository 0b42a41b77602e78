#include "Gateway.h"

namespace gateway {

namespace {

// The answer wait is cut into slices of this length, so that a stop does not
// wait out a long --timeout.
constexpr int kSliceUs = 50000;

int64_t usUntil(const orvane::Time& start, int64_t spanUs) {
    return spanUs - orvane::Time::usSinceMono(start);
}

}  // namespace

SerialSide::SerialSide(const Options& gatewayOptions, Stats& gatewayStats)
    : options(gatewayOptions), stats(gatewayStats) {}

bool SerialSide::onStart() {
    std::string path = options.serialPath;
    if (path.empty()) {
        device.reset(new SimulatedDevice());
        if (!device->open()) return false;
        path = device->path();
    }
    if (!port.open(path, 2) || !port.setLine(options.line)) {
        port.close();
        return false;
    }
    orvane::SerialPort::LineSettings actual;
    if (port.getLine(&actual) &&
        orvane::SerialPort::lineText(actual) != orvane::SerialPort::lineText(options.line)) {
        ORVANE_LOG_WARN(
            "SerialSide", "serial line %s asked for %s (%d baud), driver runs %s (%d baud)",
            path.c_str(), orvane::SerialPort::lineText(options.line).c_str(), options.line.baud,
            orvane::SerialPort::lineText(actual).c_str(), actual.baud);
    }
    if (options.rs485) port.setAttribute(orvane::SerialPort::DATAMODE, 2);
    if (device && !device->start()) return false;
    lineOpen = true;
    ORVANE_LOG_INFO("SerialSide", "serial line %s open, %s%s", path.c_str(),
                    orvane::SerialPort::lineText(options.line).c_str(),
                    options.rs485 ? ", RS-485" : "");
    return true;
}

bool SerialSide::onStop() {
    lineOpen = false;
    std::lock_guard<std::mutex> lock(lineMutex);  // the request on the line ends first
    if (device) device->stop();
    port.close();
    return true;
}

void SerialSide::submit(uint64_t client, const std::string& payload) {
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        requests.push_back(Request{client, payload});
    }
    // Each task serves the oldest request, so requests reach the line in
    // arrival order whichever worker runs first.
    std::weak_ptr<SerialSide> self = shared_from_this();
    addTask(
        [self](const std::string&) {
            if (auto side = self.lock()) side->serveOne();
        },
        "request");
}

void SerialSide::serveOne() {
    std::lock_guard<std::mutex> line(lineMutex);
    Request request;
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        if (requests.empty()) return;
        request = std::move(requests.front());
        requests.pop_front();
    }
    std::string answer = exchange(request.payload);
    if (answer.size() == 2 && static_cast<unsigned char>(answer[0]) == 0xFF) {
        ++stats.errors;
    } else {
        ++stats.answers;
    }
    if (reply_) reply_(request.client, answer);
}

// Bytes the device sent while no request waited are not an answer to the
// next one.
void SerialSide::discardStale() {
    char buf[256];
    int discarded = 0, n;
    while ((n = port.recvData(buf, sizeof buf, 0)) > 0) discarded += n;
    if (discarded > 0)
        ORVANE_LOG_WARN("SerialSide", "discarded %d bytes the device sent unasked", discarded);
}

std::string SerialSide::exchange(const std::string& payload) {
    if (!lineOpen) {
        ORVANE_LOG_WARN("SerialSide", "request dropped: the serial line is closed");
        return errorPayload(kWriteFailed);
    }
    discardStale();
    std::string frame = codec.encode(payload);
    orvane::Time started = orvane::Time::fromMono();
    const int64_t timeoutUs = int64_t(options.timeoutMs) * 1000;
    for (size_t sent = 0; sent < frame.size();) {
        int64_t leftUs = usUntil(started, timeoutUs);
        int n = leftUs <= 0 ? -2
                            : port.sendData(frame.data() + sent, int(frame.size() - sent),
                                            static_cast<int>(leftUs));
        if (n <= 0) {
            ORVANE_LOG_ERROR("SerialSide", "writing the request to the serial port failed (%s)",
                             n == -2 ? "timeout" : "error");
            return errorPayload(kWriteFailed);
        }
        sent += static_cast<size_t>(n);
    }
    ORVANE_LOG_DEBUG("SerialSide", "request sent: %s", orvane::StrUtil::hexView(frame).c_str());
    orvane::AnyPacket parser;
    char buf[512];
    for (;;) {
        int64_t leftUs = usUntil(started, timeoutUs);
        if (leftUs <= 0) {
            ORVANE_LOG_WARN("SerialSide", "device did not answer within %d ms", options.timeoutMs);
            return errorPayload(kNoAnswer);
        }
        if (!lineOpen) {
            ORVANE_LOG_WARN("SerialSide", "request abandoned: the gateway is stopping");
            return errorPayload(kNoAnswer);
        }
        int n =
            port.recvData(buf, sizeof buf, static_cast<int>(std::min<int64_t>(leftUs, kSliceUs)));
        if (n == -2) continue;
        if (n <= 0) {
            ORVANE_LOG_ERROR("SerialSide", "reading the serial port failed");
            return errorPayload(kNoAnswer);
        }
        std::vector<std::string> frames = parser.parse(std::string(buf, static_cast<size_t>(n)));
        if (frames.empty()) continue;
        if (frames.size() > 1) {
            ORVANE_LOG_WARN("SerialSide", "device sent %zu frames, the first is the answer",
                            frames.size());
        }
        std::string answer = codec.decode(frames.front());  // a bad frame is logged there
        if (answer.empty()) {
            if (frames.front() == codec.encode(""))
                ORVANE_LOG_WARN("SerialSide", "device sent an empty answer");
            return errorPayload(kBadAnswer);
        }
        return answer;
    }
}

}  // namespace gateway
