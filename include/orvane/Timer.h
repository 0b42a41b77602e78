#pragma once

#include <orvane/Export.h>
#include <orvane/Poller.h>
#include <orvane/Thread.h>
#include <orvane/Time.h>
#include <orvane/UniqueFd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace orvane {

// Which timer for which period:
// - seconds or more (a heartbeat, a status report, a reconnect retry), or
//   any period in a program that already runs an EventLoop: EventLoop's
//   addTimer. One timerfd per timer; the loop sleeps between expiries and
//   costs nothing else.
// - many timers of 10 ms to a few seconds sharing one thread, 1 ms
//   resolution: TimerManager with Timers. Its thread wakes 1000 times a
//   second while started, whatever the periods.
// - one timer of 1 ms to about 1 s, on its own thread: RTimer. It wakes up
//   to 1000 times a second.
// - sub-millisecond periods, on a dedicated core: HRTimer. It keeps one core
//   busy while started.

// Receives the firings of an RTimer or HRTimer, with the id the timer was
// built with. Called on the timer's own thread.
class ORVANE_API TimerListener {
  public:
    virtual ~TimerListener();
    // Called on the timer's thread with the id the timer was built with, once per firing.
    virtual void onTimer(int id) = 0;
};

// A software timer examined by a TimerManager (or by the caller's own loop
// through checkTimeout). Once fired, a timer reports true without firing
// again until reset() re-arms it, which the manager does after each firing;
// reset() re-arms only a periodic timer: a fired one-shot timer stays fired
// whatever its arguments. A timer built with a period below 1 ms never fires.
// Not thread-safe: once registered, the timer belongs to the manager's
// thread (reset it from its callback only), and it must be unregistered
// before it is destroyed.
class ORVANE_API Timer {
  public:
    // A timer of `periodMs` (periodic when `repeat`), started now; below 1 ms it never fires.
    Timer(int periodMs, bool repeat);

    // A period of 1 ms or more replaces period and repeat flag (else both
    // stay); a periodic timer is re-armed; the period restarts now.
    void reset(int periodMs, bool repeat);
    // True when the timer fired now (the callback, if any, was called) or
    // had fired before; false while the period runs. A late periodic timer
    // moves its start back by its lateness, unless a whole period late.
    bool checkTimeout(const std::function<void()>& callback);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    Time start;
    bool repeat;
    int64_t intervalUs;
    bool done;
};

// Runs the callbacks of many Timers on one thread, "TimerManager", which
// examines every registered timer once per 1 ms pass: timers have a 1 ms
// resolution, fire at most once per pass, and the thread wakes 1000 times a
// second while started, even with no timer registered.
// A periodic timer's next period starts from the pass in which it fired, a
// little after that pass began, so a P ms timer fires every P or, mostly,
// P + 1 ms, and its phase drifts against the clock.
// A one-shot timer stays registered after firing and is merely skipped.
// Callbacks run on the manager thread with its mutex held: they must not
// call registerTimer or unregisterTimer, and a slow callback delays every
// timer and blocks registration from other threads. Any thread may register
// and unregister; start and stop belong to one controlling thread.
class ORVANE_API TimerManager : public Runnable {
  public:
    TimerManager();
    ~TimerManager() override;
    TimerManager(const TimerManager&) = delete;
    TimerManager& operator=(const TimerManager&) = delete;

    // Starts the manager's thread ("TimerManager"); false when it is already running or cannot be
    // started.
    bool start();
    // Waits at most 10 s for the current pass to end.
    bool stop();
    // False when the timer is already registered; otherwise restarts its
    // period from now (re-arming a periodic timer). The timer is kept by
    // address and must outlive its registration.
    bool registerTimer(const Timer& timer, std::function<void()> callback);
    // Forgets the timer; nothing for one not registered. Waits for a pass that is running.
    void unregisterTimer(const Timer& timer);

    // The manager's thread body: checks every registered timer each millisecond and calls the
    // callbacks of those that fired, holding the manager's mutex.
    void run(const Thread& thread) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    std::mutex mutex;
    Thread thread;
    std::map<Timer*, std::function<void()>> timers;
};

// One timer on a thread of its own ("RTimer") that sleeps in small steps and
// calls the listener with the timer's id when a period has passed. The step
// is 1 ms for periods below 100 ms, a hundredth of the period up to 1 s,
// and 10 ms above: the thread wakes up to 1000 times a second, and a firing
// can be late by up to one step plus the scheduler's latency. A late firing
// keeps the phase unless it is a whole period late.
// start() and stop() belong to one controlling thread, and the listener must
// not call them on its own timer (they wait for the timer's thread). The
// destructor stops the thread. A one-shot timer's thread ends after firing.
class ORVANE_API RTimer : public Runnable {
  public:
    // A stopped timer that calls `listener` with `id`; the listener must outlive the timer.
    RTimer(const TimerListener& listener, int id);
    // The same with a listener that may be null; start() then fails.
    RTimer(TimerListener* listener, int id);
    ~RTimer() override;
    RTimer(const RTimer&) = delete;
    RTimer& operator=(const RTimer&) = delete;

    // Fails (with a log line) for a period below 1 ms, a negative id or a
    // null listener. A running timer is stopped and started anew.
    bool start(int periodMs, bool repeat);
    // Waits at most 10 s for the thread to end.
    bool stop();

    // The timer thread's body: sleeps in steps and calls the listener each period.
    void run(const Thread& thread) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    std::unique_ptr<Thread> thread;
    TimerListener* listener;
    bool repeat;
    int id;
    int64_t intervalUs;
    int stepUs;
};

// One timer backed by a monotonic timerfd, watched by a Poller on a thread
// of its own ("HRTimer"); the listener is called once per wake-up, however
// many expiries it covers: expiries that pass while the thread is not
// scheduled merge into one call rather than queue up.
// Cost: the thread polls the timerfd with a wait of period / 10000 ms, which
// is zero for periods under 10 s: while started it keeps one CPU core busy,
// also after a one-shot timer fired, until stop() is called. On a loaded
// machine the scheduler treats that thread as a CPU hog, so it runs late and
// merges expiries; prefer RTimer or TimerManager there.
// start() fails for a period of 0 or less, a null listener, or when the
// timerfd or its poller cannot be set up; only the poller failures are
// logged. start() while running re-arms the timer (and the thread logs its
// "allready started" warning). start() and stop() belong to one controlling
// thread, and the listener must not call stop() on its own timer. The
// descriptor stays open until destruction; a timerfd that got descriptor 0
// (standard input closed) counts as no timer for stop(), which leaves it armed.
class ORVANE_API HRTimer : public Runnable {
  public:
    // A stopped timer that calls `listener` with `id`; the listener must outlive the timer.
    HRTimer(const TimerListener& listener, int id);
    // The same with a listener that may be null; start() then fails.
    HRTimer(TimerListener* listener, int id);
    ~HRTimer() override;
    HRTimer(const HRTimer&) = delete;
    HRTimer& operator=(const HRTimer&) = delete;

    // Arms the timerfd with `periodMs` (periodic when `repeat`) and starts the thread; see the
    // class comment for the failures.
    bool start(int periodMs, bool repeat);
    // Disarms the timer and waits at most 10 s for the thread to end.
    bool stop();

    // The timer thread's body: polls the timerfd and calls the listener once per wake-up.
    void run(const Thread& thread) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    bool arm(int periodMs, bool repeat);

    Thread thread;
    TimerListener* listener;
    Poller poller;
    UniqueFd timerFd;
    std::atomic<int> intervalMs;
    int id;
};

}  // namespace orvane
