#include <orvane/Delayer.h>
#include <orvane/Thread.h>

#include <cstdint>
#include <exception>

#include "log/LogLine.h"

namespace orvane {

Delayer::Delayer()
    : className("Delayer"),
      running(false),
      failed(false),
      stopping(false),
      delaySeconds(0),
      armed(0) {}

Delayer::~Delayer() { stop(); }

bool Delayer::start(unsigned int seconds, std::function<void()> function) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        // From the function while stop() waits for it: launching a new task
        // here would replace the future stop() is collecting.
        if (stopping) return false;
        delaySeconds = seconds;
        start_ = Time::fromMono();
        callback = std::move(function);
        ++armed;
        // A waiting task picks up the new values; one whose function threw
        // is collected below.
        if (running && !failed) return true;
    }
    if (running) stop();
    return launch();
}

bool Delayer::launch() {
    // Raised before the task runs, so that a stop() right after start() is
    // not overwritten by a task that starts late.
    running = true;
    failed = false;
    try {
        task = std::async(std::launch::async, [this] { countdown(); });
    } catch (const std::exception& e) {
        running = false;
        ORVANE_ERROR_IN("start", "start delayer error: %s", e.what());
        return false;
    }
    return true;
}

bool Delayer::reset() {
    if (!running) return false;
    std::lock_guard<std::mutex> lock(mutex);
    start_ = Time::fromMono();
    return true;
}

void Delayer::countdown() {
    for (;;) {
        while (running) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                int64_t delayUs = static_cast<int64_t>(delaySeconds) * 1000000;
                if (Time::usSinceMono(start_) >= delayUs) break;
            }
            Thread::msleep(100);
        }
        std::function<void()> function;
        unsigned long seen = 0;
        {
            std::lock_guard<std::mutex> lock(mutex);
            function = callback;
            seen = armed;
        }
        try {
            function();  // an empty function throws bad_function_call
        } catch (...) {
            // The future keeps the exception for stop(); running stays set.
            failed = true;
            throw;
        }
        std::lock_guard<std::mutex> lock(mutex);
        // Armed again while the function ran: count down anew.
        if (running && armed != seen) continue;
        running = false;
        return;
    }
}

bool Delayer::stop() {
    if (!running) return true;
    running = false;
    if (!task.valid()) return true;
    stopping = true;
    bool ok = true;
    try {
        task.get();
    } catch (const std::exception& e) {
        ORVANE_ERROR("stop delayer error: %s", e.what());
        ok = false;
    }
    stopping = false;
    return ok;
}

}  // namespace orvane
