#include "support/LogCapture.h"

#include <orvane/Tracer.h>
#include <unistd.h>

#include <atomic>
#include <regex>

#include "support/Descriptors.h"
#include "support/Eventually.h"

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
    std::lock_guard<std::mutex> lock(mutex);
    captured.emplace_back(lineLevel, line);
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

bool LogCapture::waitFor(const std::string& text, int timeoutMs, size_t count) {
    return eventually([&] { return matching(text).size() >= count; }, timeoutMs);
}

std::string LogCapture::waitLine(const std::string& text, int timeoutMs) {
    return waitFor(text, timeoutMs) ? normalise(matching(text).front()) : std::string();
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

std::string LogCapture::normalise(const std::string& line) {
    static const std::regex date(R"(\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})"), number(R"(,L\d+\])");
    const auto first = std::regex_constants::format_first_only;
    return std::regex_replace(std::regex_replace(line, date, "DATE", first), number, ",L#]", first);
}

std::string tempPath(const std::string& stem) {
    static std::atomic<int> serial{0};
    const char* dir = getenv("TMPDIR");
    std::string base = (dir != nullptr && *dir != '\0') ? dir : "/tmp";
    return base + "/orvane_" + stem + "_" + std::to_string(getpid()) + "_" +
           std::to_string(serial++);
}

int openFdCount() { return static_cast<int>(openFds().size()); }

}  // namespace test
}  // namespace orvane
