#pragma once

#include <orvane/Export.h>
#include <orvane/UniqueFd.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct epoll_event;

namespace orvane {

// One descriptor and what to wait for on it (or what happened to it):
// type 0 = readable, 1 = writable; any other type is invalid.
class ORVANE_API PollEvent {
  public:
    PollEvent() : className("PollEvent") {}
    // Wait for `eventType` (0 readable, 1 writable) on `descriptor`.
    PollEvent(int descriptor, int eventType)
        : className("PollEvent"), fd(descriptor), type(eventType) {}

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The descriptor.
    int fd = -1;
    // 0 readable, 1 writable.
    int type = 0;
};

// A readiness poller over one epoll instance with a fixed capacity: at most
// `capacity` registrations, and at most that many events from one wait. It
// runs no callbacks; the caller owns the loop.
// Failures are reported by result only (false or an empty list) and never
// logged; errno is left as the system call set it.
// Any thread may call it, but add, remove and wait share one mutex: a
// thread blocked in waitEvent() holds it for the whole wait, so a thread that
// registers descriptors meanwhile waits too. Use short wait timeouts when
// other threads register.
// waitEvent() takes microseconds but epoll counts milliseconds: the timeout
// is cut to whole milliseconds toward zero, so -1 .. 999 poll without
// blocking and only -1000 or less waits without limit.
// An epoll descriptor 0 (possible only when standard input was closed)
// counts as not open: open() creates another one, and close() forgets it
// without closing it.
class ORVANE_API Poller {
  public:
    Poller();
    virtual ~Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    // True when already open (capacity and mode stay as first opened).
    // False for a capacity below 1, or when epoll or the event buffer
    // cannot be had.
    bool open(int capacity, bool edgeTriggered);
    // Closes the epoll descriptor and frees the event buffer; registered
    // descriptors stay open. Safe to call twice.
    void close();
    // Registers the descriptor for its type; false when closed, full, for a
    // negative descriptor or a type other than 0 and 1, or when epoll_ctl
    // fails (as for a descriptor already registered).
    bool addEvent(const PollEvent& event);
    // Removes a registration; false when closed or empty, for a type other than 0
    // and 1, or when epoll_ctl fails.
    bool removeEvent(const PollEvent& event);
    // The ready descriptors, one event each (readable wins over writable);
    // descriptors with only error or hang-up bits are left out.
    std::vector<std::shared_ptr<PollEvent>> waitEvent(int timeoutUs);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // The epoll mask for a PollEvent type; 0 for an invalid type.
    unsigned int maskOf(int type) const;
    // One epoll_ctl of `op` for `event`; the mutex is held.
    bool control(int op, const PollEvent& event);

    UniqueFd epollFd;
    int capacity;
    bool edgeTriggered;
    int registered;
    std::unique_ptr<epoll_event[]> readyBuffer;
    std::mutex mutex;
};

}  // namespace orvane
