#include <orvane/Event.h>
#include <orvane/Time.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <future>

#include "log/LogLine.h"

namespace orvane {

Event::~Event() = default;

EventListener::~EventListener() = default;

// ---- EventDispatcher --------------------------------------------------------

EventDispatcher::EventDispatcher() : className("EventDispatcher") {}

EventDispatcher::~EventDispatcher() = default;

bool EventDispatcher::addListener(EventListener* listener) {
    if (listener == nullptr) return false;
    std::lock_guard<std::mutex> lock(listMutex);
    listeners.push_back(listener);
    return true;
}

bool EventDispatcher::removeListener(EventListener* listener) {
    if (listener == nullptr) return false;
    std::lock_guard<std::mutex> lock(listMutex);
    listeners.erase(std::remove(listeners.begin(), listeners.end(), listener), listeners.end());
    return true;
}

EventListener* EventDispatcher::listenerAt(size_t index) {
    std::lock_guard<std::mutex> lock(listMutex);
    return index < listeners.size() ? listeners[index] : nullptr;
}

int EventDispatcher::dispatchEvent(std::shared_ptr<Event> event, int timeoutMs) {
    std::lock_guard<std::mutex> dispatch(dispatchMutex);
    std::future<int> answer;
    try {
        answer = std::async(std::launch::async, [this, &event] {
            int result = -1;
            // The list lock is held per step, never while a listener runs.
            for (size_t i = 0; result < 0; ++i) {
                EventListener* listener = listenerAt(i);
                if (listener == nullptr) break;
                result = listener->onEvent(event);
            }
            return result;
        });
    } catch (const std::exception& e) {
        ORVANE_ERROR("dispatch task error: %s", e.what());
        return -1;
    }
    if (timeoutMs == 0) {
        answer.wait();
        return 0;
    }
    if (timeoutMs > 0) {
        auto deadline = std::chrono::system_clock::now() + std::chrono::milliseconds(timeoutMs);
        if (answer.wait_until(deadline) != std::future_status::ready) {
            ORVANE_ERROR("send event timeout: %d ms!", timeoutMs);
            answer.wait();
            return -2;
        }
    }
    return answer.get();
}

// ---- EventNotifier ----------------------------------------------------------

EventNotifier::EventNotifier() : className("EventNotifier"), waiting(false) {}

EventNotifier::~EventNotifier() = default;

bool EventNotifier::notifyEvent(const int& event) {
    if (event < 0) {
        ORVANE_ERROR("event less than 0!");
        return false;
    }
    if (!waiting) {
        ORVANE_ERROR("no waiting started!");
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(event);
    }
    condition.notify_all();
    return true;
}

int EventNotifier::findLocked(const std::set<int>& wanted) const {
    for (int event : events) {
        if (wanted.count(event) != 0) return event;
    }
    return -1;
}

int EventNotifier::waitEvent(const std::set<int>& wanted, unsigned int timeoutMs) {
    Time start = Time::fromMono();
    waiting = true;
    const int64_t timeoutUs = static_cast<int64_t>(timeoutMs) * 1000;
    int found = -1;
    while (Time::usSinceMono(start) < timeoutUs) {
        std::unique_lock<std::mutex> lock(mutex);
        if ((found = findLocked(wanted)) >= 0) break;
        // One 10 ms slice: look again at every wake-up, and once at its end.
        auto sliceEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(10);
        while (condition.wait_until(lock, sliceEnd) == std::cv_status::no_timeout) {
            if ((found = findLocked(wanted)) >= 0) break;
        }
        if (found >= 0 || (found = findLocked(wanted)) >= 0) break;
    }
    waiting = false;
    return found >= 0 ? found : -2;
}

bool EventNotifier::clearEvent() {
    std::lock_guard<std::mutex> lock(mutex);
    events.clear();
    return true;
}

}  // namespace orvane
