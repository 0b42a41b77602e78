#pragma once

#include <orvane/Export.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace orvane {

// The application's event object, passed by shared reference; the library
// never looks inside it. Applications derive their events from it.
class ORVANE_API Event {
  public:
    virtual ~Event();
};

// Offered events by an EventDispatcher, on the dispatcher's task thread.
// A result of 0 or more handles the event (the result is the answer); a
// negative result passes it on to the next listener.
class ORVANE_API EventListener {
  public:
    virtual ~EventListener();
    // Called on the dispatch's own thread (see EventDispatcher) with each
    // event offered to it. 0 or more handles the event and becomes the
    // dispatcher's answer; a negative result passes it to the next listener.
    virtual int onEvent(std::shared_ptr<Event> event) = 0;
};

// Offers an event to its listeners in the order they were added, stopping at
// the first that handles it, and bounds how long the caller waits for the
// answer.
// Cost: every dispatch starts a thread of its own for the listeners, and
// dispatches are serialised: one runs at a time, and dispatchEvent always
// returns only after every listener it called has returned, so a timeout
// bounds the answer, not the call. After a timeout the listeners' answer is
// dropped. A listener must not dispatch on the same dispatcher (deadlock);
// an exception a listener throws reaches the caller of dispatchEvent, except
// with a timeout of 0 or after a timeout, where it is dropped with the answer.
// The timeout runs against the system (wall) clock: setting the clock during
// a dispatch shortens or lengthens the wait.
// Listeners are not owned and must outlive their registration; change the
// list only while no dispatch runs. Any thread may dispatch.
class ORVANE_API EventDispatcher {
  public:
    EventDispatcher();
    virtual ~EventDispatcher();
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    // Appends the listener (no duplicate check); false for null.
    bool addListener(EventListener* listener);
    // Removes every entry of the listener; false for null.
    bool removeListener(EventListener* listener);
    // The first answer of 0 or more, -1 when nobody handled the event, -2
    // (logged) when timeoutMs passed first. A timeout of 0 returns 0 whatever
    // the listeners answer; a negative one waits without limit. -1 (logged,
    // "dispatch task error") also when the dispatch thread cannot start.
    int dispatchEvent(std::shared_ptr<Event> event, int timeoutMs);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // The listener at index, or null past the end.
    EventListener* listenerAt(size_t index);

    std::mutex dispatchMutex;
    std::vector<EventListener*> listeners;
    std::mutex listMutex;
};

// Lets one thread wait for any of a set of event numbers that other threads
// post. An event posted while nobody waits is dropped (and logged). Posted
// events stay until clearEvent(), so a later wait finds them again and the
// list grows until it is cleared. A waiter sees a post within 10 ms (it
// waits in 10 ms slices); a timeout of 0 returns -2 at once, without looking.
// Any thread may notify; only one thread may wait at a time.
class ORVANE_API EventNotifier {
  public:
    EventNotifier();
    virtual ~EventNotifier();
    EventNotifier(const EventNotifier&) = delete;
    EventNotifier& operator=(const EventNotifier&) = delete;

    // False (logged) for a negative event or when no wait runs.
    bool notifyEvent(const int& event);
    // The first posted event (in posting order) that is wanted, or -2 when
    // timeoutMs passed first.
    int waitEvent(const std::set<int>& wanted, unsigned int timeoutMs);
    // Forgets every posted event; always true.
    bool clearEvent();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // The first posted event in wanted, or -1; mutex held.
    int findLocked(const std::set<int>& wanted) const;

    std::mutex mutex;
    std::condition_variable condition;
    std::vector<int> events;
    std::atomic<bool> waiting;
};

}  // namespace orvane
