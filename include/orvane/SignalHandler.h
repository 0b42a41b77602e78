#pragma once

#include <orvane/Export.h>
#include <orvane/Singleton.h>
#include <signal.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvane {

class SignalHandler;
extern template class ORVANE_API Singleton<SignalHandler>;

// The process-wide registry of signals, their callbacks and the deliveries not
// yet handled. The installed handler only counts and restores the default
// disposition, so only the first delivery of a signal is caught; a second
// one takes the default action. Callbacks run on the application thread,
// polled every 100 ms (see Application::registerSignal). The previous
// dispositions are never restored.
class ORVANE_API SignalHandler : public Singleton<SignalHandler> {
  public:
    // One registered signal.
    struct SigAction {
        // The signal number.
        int signo = 0;
        // True once the counting handler is installed for it.
        bool installed = false;
        struct sigaction previous {};
        // Run on the application thread, in the order registered, after a delivery.
        std::vector<std::function<void()>> callbacks;

        // The handler installed for every registered signal.
        static void callback(int signo, siginfo_t* info, void* context);
    };

    virtual ~SignalHandler();

    // Installs the counting handler for signo and appends callback. Returns
    // false when the handler cannot be installed for a new signal.
    bool registerSignal(int signo, std::function<void()> callback);
    // Runs the callbacks of every signal delivered since the last call.
    void checkSignal();

  private:
    friend class Singleton<SignalHandler>;
    SignalHandler();

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    std::mutex mutex;
    // Deliveries counted since the last poll, one entry per signal number from
    // construction on; atomics, because the handler increments them without
    // the mutex.
    std::map<int, std::atomic<int>> pending;
    std::map<int, std::shared_ptr<SigAction>> actions;
};

}  // namespace orvane
