#pragma once

#include <orvane/Export.h>
#include <orvane/Thread.h>
#include <orvane/UniqueFd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvane {

// A readiness loop on one thread: it waits on epoll and calls, on that one
// thread, a handler per watched descriptor (readable, writable, hang-up,
// error), the functions of due timers, and the functions posted to it. One
// loop serves any number of descriptors, so a program needs no thread per
// connection or per device.
//
//     EventLoop loop("net");
//     loop.watch(sock.fd(), EventLoop::READABLE, [&](int fd, unsigned events) { ... });
//     int tick = loop.addTimer(1000, 1000, [] { ... });   // every second
//     loop.start();                                        // on a thread named "net"
//     loop.post([] { ... });                               // from any thread
//     loop.stop();
//
// Thread rules. Every operation may be called from any thread. Called on
// the loop's thread (from a handler, a timer or a posted function), a change
// applies at once, and a descriptor unwatched there gets no further call,
// not even for events already fetched. Called from another thread, or while
// no thread runs the loop, the change is queued and applied in call order on
// the loop's thread before its next wait; the caller is woken through an
// eventfd. The result then only says whether the request was valid and
// queued; a kernel refusal is logged on the loop's thread.
// Handlers, timer and posted functions run without any lock held and may
// call every operation, stop() included. An exception they throw is not
// caught: it leaves run().
//
// For periods of seconds this is the timer to use: nothing wakes between
// expiries (Timer.h compares the library's timers).
//
// Costs. Three descriptors (epoll, eventfd, and one timerfd per timer); no
// thread unless start() is used. The loop sleeps in epoll_wait without a
// timeout: an idle loop costs nothing, a periodic timer wakes it once per
// period (the kernel re-arms the timerfd), a post from another thread costs
// one eventfd write. Level-triggered: a handler that leaves data unread is
// called again at once. A timer that fell behind fires once for all the
// expiries it missed.
// Failures are logged once and reported by result: false, or -1 for a timer.
class ORVANE_API EventLoop {
  public:
    // Event bits: interest of watch() / modify(), and what a handler is told.
    // HANGUP and ERROR are always reported, whatever the interest.
    enum Events : unsigned {
        READABLE = 1,  // data, a peer's end of stream, or a pending accept
        WRITABLE = 2,
        HANGUP = 4,  // the peer hung up (EPOLLHUP, EPOLLRDHUP)
        ERROR = 8,   // an error is pending on the descriptor (EPOLLERR)
    };
    // Called on the loop's thread with the descriptor and the readiness bits that woke it.
    using Handler = std::function<void(int fd, unsigned events)>;

    // `name` names the thread of start() and the loop's log lines. A loop
    // whose epoll or eventfd cannot be had logs it; isValid() is then false
    // and run() / start() fail.
    explicit EventLoop(const std::string& name = "EventLoop");
    // Stops the loop's own thread (start()) and waits for it; watched
    // descriptors stay open (the loop does not own them), timers are closed.
    // Destroy a loop that runs on a caller's thread only after run() returned.
    virtual ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // True when the epoll and wake-up descriptors were created.
    bool isValid() const { return epollFd.valid() && wakeFd.valid(); }

    // Watches `fd` for `interest` (READABLE and/or WRITABLE, or 0 for hang-up
    // and error only) and calls `handler` with the events that happened.
    // Watching a descriptor again replaces its interest and handler. False for
    // a negative descriptor, an empty handler or unknown interest bits, or
    // (on the loop's thread) when epoll refuses the descriptor.
    bool watch(int fd, unsigned interest, Handler handler);
    // Changes the interest of a watched descriptor. False for an unknown one
    // (on the loop's thread) or bad bits.
    bool modify(int fd, unsigned interest);
    // Stops watching `fd`; it stays open. False for an unknown descriptor on
    // the loop's thread. Unwatch before closing: epoll forgets a closed
    // descriptor by itself only when no duplicate of it remains.
    bool unwatch(int fd);

    // A timer that calls `fn` on the loop's thread `firstMs` milliseconds
    // from now and then, when periodMs is above 0, every periodMs
    // milliseconds; a one-shot timer (periodMs 0) is forgotten after it fired.
    // Returns the timer's id (above 0), or -1 for firstMs below 1, a negative
    // period, an empty function, or when no timerfd can be had.
    int addTimer(int firstMs, int periodMs, std::function<void()> fn);
    // Forgets a timer; it does not fire again once this applied. False for
    // an id that was never given.
    bool cancelTimer(int timerId);

    // Runs `fn` once on the loop's thread, after the functions posted before
    // it; what was posted before stop() runs before run() returns. False for
    // an empty function. Functions still queued when the loop is destroyed
    // without having run never run.
    bool post(std::function<void()> fn);

    // Runs the loop on the calling thread until stop(). False at once when
    // the loop is invalid or already running. A stop() that came before
    // run() makes run() return after applying what was queued.
    bool run();
    // Runs the loop on a Thread of its own, named as the loop. False when
    // invalid, already running, or the thread cannot start.
    bool start();
    // Asks the loop to return from run() after the handler now running.
    // From a thread other than the loop's, on a loop started with start(),
    // it also waits for that thread to end (at most 10 s, see Thread::stop).
    void stop();
    // True on the thread that is running the loop.
    bool isInLoopThread() const;
    // Number of watched descriptors (timers not counted) as the loop's
    // thread last applied them.
    int sources() const { return sourceCount.load(); }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    struct Source {
        int fd;
        unsigned interest;
        Handler handler;
        int timerId;  // above 0 for a timer's timerfd
    };
    struct Timer {
        UniqueFd fd;
        std::function<void()> fn;
        bool periodic;
    };
    class Runner : public Runnable {
      public:
        explicit Runner(EventLoop* owner) : loop(owner) {}
        void run(const Thread&) override { loop->loop(); }

      private:
        EventLoop* loop;
    };

    // Runs `change` now on the loop's thread and returns its result; from
    // another thread queues it and returns true.
    bool apply(std::function<bool()> change);
    // Queues `fn` for the loop's thread and, from another thread, wakes the loop.
    void enqueue(std::function<void()> fn);
    void wake();
    bool addSource(int fd, unsigned interest, Handler handler, int timerId, const char* method);
    bool removeSource(int fd, const char* method);
    // The body of run(), once the loop is claimed as running.
    void loop();
    void runPosted();
    void dispatch(uint64_t key, unsigned events);
    void fireTimer(int timerId);

    std::string name;
    UniqueFd epollFd;
    UniqueFd wakeFd;
    std::map<int, uint64_t> keys;         // fd -> key of its current registration
    std::map<uint64_t, Source> sources_;  // key -> registration
    std::map<int, Timer> timers;
    uint64_t nextKey = 1;
    std::atomic<int> nextTimerId{1};
    std::atomic<int> sourceCount{0};

    std::mutex queueMutex;
    std::vector<std::function<void()>> queue;
    std::atomic<bool> quitRequested{false};
    std::atomic<bool> running{false};
    std::atomic<std::thread::id> loopThread{};

    std::mutex threadMutex;
    Runner runner{this};
    std::unique_ptr<Thread> thread;
};

}  // namespace orvane
