#pragma once

#include <orvane/Export.h>
#include <orvane/Time.h>

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <string>

namespace orvane {

// Runs one function once, a whole number of seconds after it was armed, on a
// thread of its own that checks the countdown every 100 ms (so the function
// runs up to 100 ms late). Arming it again while it waits replaces the
// function and restarts the countdown; reset() restarts the countdown alone:
// a re-triggerable, watchdog-like delay.
// stop() does not cancel: a waiting delayer runs its function at once
// (within 100 ms) and stop() returns after it has returned. The destructor
// does the same, so a delayer destroyed while waiting still fires.
// A function that throws ends the task; stop() (or the next start) logs the
// exception. An empty function counts as one that throws.
// start and stop belong to one controlling thread; reset may come from any
// thread. The function must not call stop() on its own delayer; it may call
// start() to arm it again, except while stop() or the destructor is firing
// it: that start() is refused (false), so a stopped delayer stays stopped.
class ORVANE_API Delayer {
  public:
    Delayer();
    virtual ~Delayer();
    Delayer(const Delayer&) = delete;
    Delayer& operator=(const Delayer&) = delete;

    // True when armed; false (logged) when the background task cannot start,
    // and false without a line when called from the function during stop().
    bool start(unsigned int delaySeconds, std::function<void()> function);
    // True when a waiting countdown was restarted; false when idle.
    bool reset();
    // True when idle or when the function returned; false (logged) when it threw.
    bool stop();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    bool launch();
    void countdown();

    std::function<void()> callback;
    std::atomic<bool> running;
    // Set when the function threw: the task has ended although running is set.
    std::atomic<bool> failed;
    // Set while stop() collects the task, whose function may call start().
    std::atomic<bool> stopping;
    std::future<void> task;
    std::mutex mutex;
    Time start_;
    unsigned int delaySeconds;
    // Counts start() calls, so the task sees one that came while the function ran.
    unsigned long armed;
};

}  // namespace orvane
