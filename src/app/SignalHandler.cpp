#include <orvane/SignalHandler.h>

#include <atomic>
#include <tuple>

#include "log/LogLine.h"

namespace orvane {

template class Singleton<SignalHandler>;

namespace {

// Cleared when the registry is destroyed at exit; the handlers stay
// installed, and a late delivery must not read the destroyed counts.
std::atomic<bool> registryAlive{false};

}  // namespace

SignalHandler::SignalHandler() : className("SignalHandler") {
    // A count for every signal number up front: the map never changes shape
    // afterwards, so the handler can read it while another thread registers.
    for (int signo = 1; signo < NSIG; ++signo) {
        pending.emplace(std::piecewise_construct, std::forward_as_tuple(signo),
                        std::forward_as_tuple(0));
    }
    registryAlive = true;
}

SignalHandler::~SignalHandler() { registryAlive = false; }

void SignalHandler::SigAction::callback(int signo, siginfo_t*, void*) {
    // Async-signal context: only an existing map entry is touched, nothing
    // is allocated or locked.
    if (!registryAlive.load()) {
        // Past the registry's end: the delivery gets the default action it
        // would have had without one.
        signal(signo, SIG_DFL);
        raise(signo);
        return;
    }
    SignalHandler& registry = SignalHandler::getInstance();
    auto entry = registry.pending.find(signo);
    if (entry != registry.pending.end()) ++entry->second;
    signal(signo, SIG_DFL);
}

namespace {

bool install(SignalHandler::SigAction& record) {
    struct sigaction action {};
    action.sa_sigaction = &SignalHandler::SigAction::callback;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO;
    if (sigaction(record.signo, &action, &record.previous) != 0) return false;
    record.installed = true;
    return true;
}

}  // namespace

bool SignalHandler::registerSignal(int signo, std::function<void()> callback) {
    std::lock_guard<std::mutex> lock(mutex);
    auto found = actions.find(signo);
    if (found != actions.end()) {
        SigAction& record = *found->second;
        // A failed re-installation still answers true, without the callback.
        if (!record.installed && !install(record)) return true;
        record.callbacks.push_back(std::move(callback));
        return true;
    }
    auto record = std::make_shared<SigAction>();
    record->signo = signo;
    if (!install(*record)) return false;
    record->callbacks.push_back(std::move(callback));
    actions.emplace(signo, std::move(record));
    return true;
}

void SignalHandler::checkSignal() {
    // The whole pass holds the mutex, so registration cannot reshape the map
    // while it is walked; callbacks therefore must not register signals.
    std::lock_guard<std::mutex> lock(mutex);
    for (auto& entry : pending) {
        if (entry.second < 1) continue;
        auto found = actions.find(entry.first);
        if (found == actions.end()) continue;
        ORVANE_WARN("recv signal: %d", entry.first);
        for (auto& callback : found->second->callbacks) {
            if (callback) callback();
        }
        entry.second = 0;
    }
}

}  // namespace orvane
