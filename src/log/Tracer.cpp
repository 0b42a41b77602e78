#include <orvane/StrUtil.h>
#include <orvane/Tracer.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "log/LogLine.h"

namespace orvane {

template class Singleton<Tracer>;

namespace {

constexpr size_t kLineBytes = 4096;

// The level a sink receives for a finished line, from its tag letter; -1 drops
// the line. A C-tagged line loses its tag here.
int classify(std::string& line) {
    if (line.size() < 2) return -1;
    switch (line[1]) {
        case 'D':
            return 0;
        case 'I':
            return 1;
        case 'W':
            return 2;
        case 'E':
            return 3;
        case 'F':
            return 4;
        case 'C':
            line.erase(0, 3);
            return 1;
        case 'L': {
            // May throw (std::stoi); that ends the sink thread and the
            // destructor reports it.
            std::string tag = StrUtil::findString(line, "<", ">");
            int userLevel = std::stoi(tag.substr(2));
            return userLevel > 4 ? userLevel : -1;
        }
        default:
            return -1;
    }
}

}  // namespace

Tracer::Tracer() : name("Tracer"), level(1), running(false) {
    setvbuf(stdout, nullptr, _IONBF, 8192);
}

Tracer::~Tracer() {
    running = false;
    if (sinkTask.valid()) {
        try {
            sinkTask.get();
        } catch (const std::exception& e) {
            syslog(LOG_ERR, "orvane::Tracer::~Tracer() error: %s", e.what());
        }
    }
    try {
        sinkMsg();
    } catch (const std::exception& e) {
        syslog(LOG_ERR, "orvane::Tracer::~Tracer() error: %s", e.what());
    }
}

void Tracer::print(int lineLevel, const char* format, ...) {
    if (lineLevel < level.load() || format == nullptr) return;
    // Formatted on the caller's stack, so threads format in parallel and the
    // queue lock covers only the append. vsnprintf writes what it needs;
    // nothing is zeroed first.
    char buffer[kLineBytes];
    va_list args;
    va_start(args, format);
    int n = vsnprintf(buffer, kLineBytes - 1, format, args);
    va_end(args);
    if (n <= 0) return;
    size_t length = static_cast<size_t>(n);
    if (length > kLineBytes - 1) {
        memcpy(buffer + kLineBytes - 4, "...", 3);
        buffer[kLineBytes - 1] = '\0';
        length = kLineBytes;
    }
    // At exactly 4095 the formatter wrote 4094 characters; the line keeps its NUL.
    std::string line(buffer, length);
    std::lock_guard<std::mutex> lock(queueMutex);
    pending.push_back(std::move(line));
}

void Tracer::setLevel(int newLevel) {
    if (newLevel >= 0 && newLevel <= 4) level = newLevel;
    int heard = newLevel < 0 ? 0 : newLevel;
    for (auto& sink : sinks) sink->onLevelChanged(heard);
}

void Tracer::addSink(std::shared_ptr<TracerSink> sink) {
    if (running || !sink) return;
    if (sink->sinkName() == "STDSink") {
        if (stdSinkAdded) {
            sink->onLevelChanged(level);
            return;
        }
        stdSinkAdded = true;
    }
    sink->onLevelChanged(level);
    std::lock_guard<std::mutex> lock(sinkMutex);
    sinks.push_back(std::move(sink));
}

void Tracer::start() {
    if (running) return;
    // Raised before the sink thread runs: a destructor that comes before the
    // thread's first pass must still be able to stop it.
    running = true;
    try {
        sinkTask = std::async(std::launch::async, [this] { sinkLoop(); });
    } catch (const std::exception& e) {
        running = false;
        syslog(LOG_ERR, "orvane::Tracer::start() error: %s", e.what());
    }
}

void Tracer::sinkLoop() {
    Rate rate(100);
    while (running) {
        sinkMsg();
        rate.sleep();
    }
    running = false;
}

void Tracer::flush() {
    for (auto& sink : sinks) sink->onFlushed();
}

void Tracer::sinkMsg() {
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        if (pending.empty()) return;
        pending.swap(spare);
    }
    // Only the sink thread (or the destructor, after it) gets here, so
    // `spare` is ours until the next swap.
    for (std::string& line : spare) {
        int lineLevel = classify(line);
        if (lineLevel < 0) continue;
        std::lock_guard<std::mutex> lock(sinkMutex);
        for (auto& sink : sinks) sink->sink(lineLevel, line);
    }
    spare.clear();
}

// ---- TraceDuration ----------------------------------------------------------

TraceDuration::TraceDuration(const std::string& traceName, unsigned int threshold)
    : name(traceName), thresholdMs(threshold), start(Time::fromMono()) {}

TraceDuration::~TraceDuration() {
    Time elapsed = Time::fromMono() - start;
    if (thresholdMs <= elapsed.toMicroSec() / 1000) {
        Tracer::getInstance().print(1, "<I>%s [%s] trace duration: %s s", detail::logTime(),
                                    name.c_str(), elapsed.toString().c_str());
    }
}

double TraceDuration::duration() const { return (Time::fromMono() - start).toSec(); }

}  // namespace orvane
