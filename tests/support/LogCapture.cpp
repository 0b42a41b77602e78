#include "support/LogCapture.h"

#include <orvane/Tracer.h>
#include <unistd.h>

#include <atomic>
#include <regex>

namespace orvane::test {

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

std::vector<std::string> LogCapture::matching(const std::string& text) {
    std::vector<std::string> found;
    for (auto& entry : lines())
        if (entry.second.find(text) != std::string::npos) found.push_back(entry.second);
    return found;
}

std::vector<std::string> LogCapture::linesDuring(const std::function<void()>& action) {
    static std::atomic<int> serial{0};
    std::string marker = "[capture " + std::to_string(++serial) + "]";
    Tracer::getInstance().print(3, "<E>%s", marker.c_str());
    waitFor(marker);
    action();
    Tracer::getInstance().print(3, "<E>%s", marker.c_str());
    waitFor(marker, 3000, 2);
    // The lines between the two markers.
    std::vector<std::string> found;
    int markers = 0;
    for (auto& entry : lines()) {
        bool isMarker = entry.second.find(marker) != std::string::npos;
        if ((markers += isMarker) == 1 && !isMarker) found.push_back(normalise(entry.second));
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
    return std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/orvane_" + stem + "_" +
           std::to_string(getpid()) + "_" + std::to_string(serial++);
}

}  // namespace orvane::test
