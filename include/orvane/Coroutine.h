#pragma once

#include <orvane/Export.h>
#include <ucontext.h>

#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

namespace orvane {

class CoScheduler;

// A stackful coroutine run by a CoScheduler on the scheduler's one shared
// stack. Derive from it and put the body in routine(); inside the body,
// yield() or usleep()/msleep() hand control back to the scheduler.
//
// At every yield the part of the shared stack the coroutine uses is copied
// into its own save buffer and copied back when it is resumed, so a yield
// costs a copy of the live stack in each direction. The save buffer is
// reserved at 1 MiB on the first yield; untouched pages of it cost no memory.
// A yield whose stack does not fit (deeper than 1 MiB, or not on the shared
// stack at all) is logged and refused: the coroutine keeps running.
// A body that returns keeps the coroutine alive, yielding every 100 us,
// until the scheduler stops it. A stopped suspended coroutine is never
// resumed, so destructors of its body's locals never run. An exception that
// escapes routine() terminates the process, as from a std::thread.
// Ids come from a process-wide counter; a derived class may assign `id`
// before start() to take over the entry of another coroutine.
// A coroutine, its scheduler and every call on them belong to one thread.
class ORVANE_API Coroutine {
  public:
    enum { kIdle = 0, kRunning = 1, kSuspended = 2 };

    Coroutine();
    virtual ~Coroutine();
    Coroutine(const Coroutine&) = delete;
    Coroutine& operator=(const Coroutine&) = delete;

    // The body; it runs on the scheduler's shared stack.
    virtual void routine() = 0;

    // The id the coroutine was built with.
    int coroutineID() const { return id; }
    // 0 idle or finished, 1 running, 2 suspended.
    int state() const { return state_; }
    // True while running or suspended.
    bool isRunning() const { return state_ != kIdle; }

    // From inside the body: saves the stack and switches to the scheduler.
    // True once resumed; false (nothing done) when this coroutine is not the
    // one running, or when the switch was refused or failed.
    bool yield();
    // From the scheduler's side: restores the stack of a suspended coroutine
    // and runs it until it yields again. False when it is not suspended, when
    // called from inside a coroutine, or when the switch failed.
    bool resume();
    // Yields until at least `us` microseconds (at least 1) have passed on the
    // monotonic clock, so it sleeps only as precisely as the scheduler
    // resumes it. Returns at once when a yield is not possible.
    void usleep(int us);
    // usleep() in milliseconds; negative counts as 0.
    void msleep(int ms);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The id the scheduler keeps the coroutine under.
    int id;

  private:
    friend class CoScheduler;
    struct BufferFree {
        void operator()(unsigned char* buffer) const { std::free(buffer); }
    };

    bool saveStack();
    void restoreStack();

    CoScheduler* scheduler;
    ucontext_t context;
    int state_;
    int savedSize;
    std::unique_ptr<unsigned char[], BufferFree> saveBuffer;
    // The coroutine's own fake-stack handle while it is suspended; used only
    // by AddressSanitizer builds, present in all for one object layout.
    void* fakeStack;
    // The coroutine's ThreadSanitizer fiber, from its start until it is
    // started again or destroyed (ThreadSanitizer builds only).
    void* tsanFiber;
};

// Owns the 1 MiB stack that all its coroutines share, and the coroutines by
// id. start() runs a coroutine at once until its first yield; schedule()
// resumes one until its next yield. Nothing runs on its own: the owning
// thread drives every coroutine by calling schedule().
// The object is over 1 MiB large: create it on the heap. It must not be
// destroyed, nor start() or schedule() be called, from inside one of its
// coroutines (such a start or schedule is refused and logged). Destroying the
// scheduler stops every coroutine it still holds.
// Not thread-safe: the scheduler and its coroutines belong to one thread.
class ORVANE_API CoScheduler {
  public:
    // Size in bytes of the stack that every coroutine of a scheduler runs on.
    static constexpr size_t kStackSize = 1024 * 1024;

    CoScheduler();
    virtual ~CoScheduler();
    CoScheduler(const CoScheduler&) = delete;
    CoScheduler& operator=(const CoScheduler&) = delete;

    // Registers `co` under its id (replacing and stopping any coroutine with
    // that id) and runs it until it first yields. False for an empty pointer,
    // a coroutine that is not idle or a negative id.
    bool start(std::shared_ptr<Coroutine> co);
    // Resumes the coroutine with this id until it yields again; false when
    // there is none or it could not be resumed.
    bool schedule(int id);
    // Marks the coroutine idle and drops it; false when there is none.
    bool stop(int id);
    // The number of held coroutines that are not idle.
    int routines() const;

    // The scheduler's own context, which the coroutines switch back to.
    ucontext_t* context() { return &context_; }
    // The shared stack the coroutines run on (kStackSize bytes).
    unsigned char* stack() { return stack_; }

  private:
    friend class Coroutine;
    static void coroutineEntry(void* arg);
    // Switches from the caller's stack to `co`, which then runs until it
    // switches back; 0, or the errno of the failed switch.
    int switchIn(Coroutine* co);
    bool onSharedStack(const void* address) const;

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    std::map<int, std::shared_ptr<Coroutine>> coroutines;
    ucontext_t context_;
    alignas(64) unsigned char stack_[kStackSize];
    // A coroutine that stopped itself, held until it has switched back.
    std::shared_ptr<Coroutine> retired;
    // The stack of the thread that drives the scheduler, as AddressSanitizer
    // reported it at the last switch into a coroutine (sanitizer builds only).
    const void* callerStack;
    size_t callerStackSize;
    // The ThreadSanitizer fiber of that thread at the last switch into a
    // coroutine (ThreadSanitizer builds only).
    void* callerFiber;
    // The shared stack's registration with valgrind (builds with its headers).
    unsigned valgrindStackId;
};

}  // namespace orvane
