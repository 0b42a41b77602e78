#pragma once

#include <orvane/Export.h>

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

namespace orvane {

class Thread;

// A thread's scheduling wishes, applied by Thread::setSchedParam to the
// calling thread. The default value changes nothing.
struct ORVANE_API SchedParam {
    std::vector<int> cpus;  // CPUs to run on; empty keeps the affinity, >= 1024 ignored
    int inherit = 0;        // non-zero: apply only the name
    int policy = 255;       // 255 keeps policy and priority; 0 is the normal policy
    int priority = -1;      // policy 0: nice = 20 - priority; else the real-time priority
    std::string name;       // kernel thread name; empty keeps it
};

// Work run by a Thread. run() loops while thread.isRunning() (or
// !isStopped()); quit() asks the thread that runs it to stop.
class ORVANE_API Runnable {
  public:
    Runnable();
    virtual ~Runnable();

    // The work, on the thread started with it; return when `thread` reports that it is no longer
    // running.
    virtual void run(const Thread& thread) = 0;
    // True when no thread runs this, else whether that thread was asked to stop.
    bool isStopped() const;
    // Asks the thread that runs this to stop (clears its running flag); nothing when no thread runs
    // it. Any thread.
    void quit();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    friend class Thread;
    // The thread running this, or null; set and cleared by that thread, read by others.
    std::atomic<Thread*> runningThread;
};

// A named thread running one Runnable. The name becomes the kernel's thread
// name (cut to 15 characters by the kernel); entry and exit are logged.
// stop() is cooperative: it clears the running flag and waits at most its
// timeout (10 s for a timeout below 1); a runnable that ignores the request
// keeps running, and the destructor then waits for it to end, for ever if it
// never does (a UdpServer ends through its own quit(), not through stop()). stop() called
// from the thread's own body only clears the flag and returns true.
// start() and stop() belong to one controlling thread.
class ORVANE_API Thread {
  public:
    Thread();
    // An idle thread; `name` becomes the kernel's thread name when it starts.
    explicit Thread(const std::string& name);
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // A new, idle thread with the same name.
    virtual std::unique_ptr<Thread> clone() const;
    // Starts a thread that runs `runnable`; false (logged) when already running or the thread
    // cannot be created. The runnable must outlive the run.
    virtual bool start(const Runnable& runnable);
    // Clears the running flag and waits at most `timeoutMs` (10 s for less than 1) for the body to
    // end; false, with a forced-quit log line, when it did not.
    virtual bool stop(int timeoutMs);
    // True from start() until the body returns or stop() is called. Any thread.
    virtual bool isRunning() const;

    // The thread's name. Any thread.
    const std::string& name() const { return name_; }
    // Low 32 bits of pthread_self() of the running thread.
    unsigned int tid() const { return pthreadId; }
    // Kernel task id of the running thread.
    int taskId() const { return taskId_; }

    // Sleep at least 1 us / 1 ms, resuming after signal interruptions.
    static void usleep(int us);
    // Sleeps at least `ms` milliseconds (1 for less).
    static void msleep(int ms);
    // Applies `param` to the calling thread (affinity, policy and priority or nice value, name);
    // false, logged, when the system refuses a part (the others are still applied).
    static bool setSchedParam(const SchedParam& param);
    // The calling thread's affinity, policy, priority and name into *param; false for a null
    // pointer or a failed query.
    static bool getSchedParam(SchedParam* param);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    friend class Runnable;
    int body();

    // The runnable given to start(); run() is not const, so it is kept non-const.
    Runnable* runnable;
    std::string name_;
    std::future<int> future;
    std::atomic<bool> running;
    std::atomic<unsigned int> pthreadId;
    std::atomic<int> taskId_;
};

// Runs functions on threads of their own and joins them all when destroyed,
// logging any exception a function ended with.
class ORVANE_API Threading {
  public:
    Threading() : className("Threading") {}
    // A group called `groupName` in its log lines.
    explicit Threading(const std::string& groupName) : className("Threading"), name(groupName) {}
    virtual ~Threading();
    Threading(const Threading&) = delete;
    Threading& operator=(const Threading&) = delete;

    // Runs `fn` on a new thread of this group; the destructor joins it.
    void start(std::function<void()> fn);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    std::vector<std::future<void>> futures;
    std::string name;
};

}  // namespace orvane
