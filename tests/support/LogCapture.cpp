#include "support/LogCapture.h"

#include <dirent.h>
#include <orvane/Tracer.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <chrono>

namespace orvane {
namespace test {

LogCapture& LogCapture::get() {
    static LogCapture* capture = [] {
        auto sink = std::shared_ptr<LogCapture>(new LogCapture());
        Tracer::getInstance().addSink(sink);
        Tracer::getInstance().start();
        // The Tracer holds a reference until process exit.
        return sink.get();
    }();
    return *capture;
}

LogCapture& LogCapture::fresh() {
    LogCapture& capture = get();
    capture.clear();
    return capture;
}

void LogCapture::sink(int lineLevel, const std::string& line) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        captured.emplace_back(lineLevel, line);
    }
    arrived.notify_all();
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(mutex);
    captured.clear();
}

std::vector<std::pair<int, std::string>> LogCapture::lines() {
    std::lock_guard<std::mutex> lock(mutex);
    return captured;
}

std::vector<std::string> LogCapture::matching(const std::string& text) {
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::string> found;
    for (auto& entry : captured) {
        if (entry.second.find(text) != std::string::npos) found.push_back(entry.second);
    }
    return found;
}

size_t LogCapture::countLocked(const std::string& text) {
    size_t n = 0;
    for (auto& entry : captured) {
        if (entry.second.find(text) != std::string::npos) ++n;
    }
    return n;
}

bool LogCapture::waitFor(const std::string& text, int timeoutMs, size_t count) {
    std::unique_lock<std::mutex> lock(mutex);
    return arrived.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [&] { return countLocked(text) >= count; });
}

std::string LogCapture::waitLine(const std::string& text, int timeoutMs) {
    if (!waitFor(text, timeoutMs)) return std::string();
    std::lock_guard<std::mutex> lock(mutex);
    for (auto& entry : captured) {
        if (entry.second.find(text) != std::string::npos) return normalise(entry.second);
    }
    return std::string();
}

std::vector<std::string> LogCapture::linesDuring(const std::function<void()>& action) {
    static std::atomic<int> serial{0};
    std::string id = std::to_string(++serial);
    std::string begin = "[capture " + id + " begin]", end = "[capture " + id + " end]";
    Tracer::getInstance().print(3, "<E>%s", begin.c_str());
    waitFor(begin);
    action();
    Tracer::getInstance().print(3, "<E>%s", end.c_str());
    waitFor(end);
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::string> found;
    bool inside = false;
    for (auto& entry : captured) {
        if (entry.second.find(end) != std::string::npos) break;
        if (inside) found.push_back(normalise(entry.second));
        if (entry.second.find(begin) != std::string::npos) inside = true;
    }
    return found;
}

namespace {

// Index of the first "YYYY-MM-DD HH:MM:SS" in `line`, or npos.
size_t findDate(const std::string& line) {
    static const char shape[] = "dddd-dd-dd dd:dd:dd";
    const size_t width = sizeof shape - 1;
    for (size_t at = 0; at + width <= line.size(); ++at) {
        size_t i = 0;
        for (; i < width; ++i) {
            char c = line[at + i];
            if (shape[i] == 'd' ? !isdigit(static_cast<unsigned char>(c)) : c != shape[i]) break;
        }
        if (i == width) return at;
    }
    return std::string::npos;
}

}  // namespace

std::string LogCapture::normalise(const std::string& line) {
    std::string out = line;
    size_t date = findDate(out);
    if (date != std::string::npos) out.replace(date, 19, "DATE");
    // The first ",L<digits>]" becomes ",L#]".
    for (size_t at = out.find(",L"); at != std::string::npos; at = out.find(",L", at + 1)) {
        size_t end = at + 2;
        while (end < out.size() && isdigit(static_cast<unsigned char>(out[end]))) ++end;
        if (end > at + 2 && end < out.size() && out[end] == ']') {
            out.replace(at, end - at + 1, ",L#]");
            break;
        }
    }
    return out;
}

std::string tempPath(const std::string& stem) {
    static std::atomic<int> serial{0};
    const char* dir = getenv("TMPDIR");
    std::string base = (dir != nullptr && *dir != '\0') ? dir : "/tmp";
    return base + "/orvane_" + stem + "_" + std::to_string(getpid()) + "_" +
           std::to_string(serial++);
}

int openFdCount() {
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) return -1;
    int n = 0;
    while (readdir(dir) != nullptr) ++n;
    closedir(dir);
    return n - 3;  // ".", ".." and the directory's own descriptor
}

}  // namespace test
}  // namespace orvane
