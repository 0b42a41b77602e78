#pragma once

#include <gtest/gtest.h>
#include <orvane/TracerSink.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/Eventually.h"

namespace orvane::test {

// Collects every line the Tracer delivers, for tests that check log output.
// The first call of LogCapture::get() registers the capture sink and starts
// the Tracer's sink thread for the rest of the process, so a test that
// checks the Tracer's own start-up must run in a child process.
class LogCapture : public TracerSink {
  public:
    static LogCapture& get();
    // get() with the lines captured so far dropped, for a test that must not
    // see an earlier test's (or an earlier repetition's) lines.
    static LogCapture& fresh() {
        get().clear();
        return get();
    }

    void sink(int lineLevel, const std::string& line) override {
        std::lock_guard<std::mutex> lock(mutex);
        captured.emplace_back(lineLevel, line);
    }
    void clear() {
        std::lock_guard<std::mutex> lock(mutex);
        captured.clear();
    }
    std::vector<std::pair<int, std::string>> lines() {
        std::lock_guard<std::mutex> lock(mutex);
        return captured;
    }
    // Lines containing `text`, in delivery order.
    std::vector<std::string> matching(const std::string& text);
    // Waits until `count` lines containing `text` were delivered; false on timeout.
    bool waitFor(const std::string& text, int timeoutMs = 3000, size_t count = 1) {
        return eventually([&] { return matching(text).size() >= count; }, timeoutMs);
    }
    // Waits for the first line containing `text` and returns it normalised
    // (see normalise), or "" on timeout.
    std::string waitLine(const std::string& text, int timeoutMs = 3000) {
        return waitFor(text, timeoutMs) ? normalise(matching(text).front()) : std::string();
    }
    // Runs `action` and returns, normalised and in order, the lines logged
    // while it ran (by any thread). Marker lines logged before and after it
    // bound the range, as the Tracer delivers lines in order.
    std::vector<std::string> linesDuring(const std::function<void()>& action);

    // A line with its date-time replaced by "DATE" and its ",L<n>]" by ",L#]",
    // so tests compare whole lines without depending on clock or line numbers.
    static std::string normalise(const std::string& line);

  private:
    LogCapture() = default;

    std::mutex mutex;
    std::vector<std::pair<int, std::string>> captured;
};

// Checks the library's rule for bad input: `call` returns false and logs
// exactly `line` (normalised) and nothing else.
inline void expectRefusal(const std::function<bool()>& call, const std::string& line) {
    bool ok = true;
    EXPECT_EQ(LogCapture::get().linesDuring([&] { ok = call(); }), std::vector<std::string>{line});
    EXPECT_FALSE(ok) << line;
}

// A path under the temporary directory, unique to this process and call.
std::string tempPath(const std::string& stem);

}  // namespace orvane::test
