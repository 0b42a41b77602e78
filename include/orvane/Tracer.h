#pragma once

#include <orvane/Export.h>
#include <orvane/Singleton.h>
#include <orvane/Time.h>
#include <orvane/TracerSink.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvane {

class Tracer;
extern template class ORVANE_API Singleton<Tracer>;

// The process-wide logger. print() formats one line in the calling thread and
// queues it; a sink thread started by start() hands queued lines to every sink
// every 10 ms, so a line may wait up to 10 ms before it appears. The sink
// level is read from the line's tag: D 0, I 1, W 2, E 3, F 4, C 1 (tag
// removed), L<n> n when n > 4; other lines are dropped. Lines longer than
// 4095 bytes are cut and end with "...". Sinks must be added before start().
// flush() only tells the sinks to flush; it does not drain the queue. Lines
// still queued when the process ends are delivered by the destructor, but a
// process that calls _exit loses the last batch.
// Any thread may print; print never waits on an output device.
//
// Behaviour that surprises:
// - A line whose "<L" tag holds no number the sink thread can read ("<Lx>",
//   "<L>", a number beyond int, no closing '>') ends the sink thread: the
//   lines after it in the same pass are lost, nothing more reaches the sinks
//   until the process exits (the destructor then reports the error to the
//   system log and delivers what was queued since), and start() and
//   addSink() stay refused.
// - The queue has no bound: a program that never calls start(), or whose
//   sink stalls, keeps every line it logs in memory until it exits.
// - A filtered print() formats nothing, but its arguments are evaluated
//   before the call (a date string built by the caller, for example); check
//   enabled() first when they cost something.
// - addSink() refuses a second console sink by comparing the base name that
//   every sink shares ("TracerSink"), so it never matches: two STDSinks are
//   both registered and every line is printed twice.
class ORVANE_API Tracer : public Singleton<Tracer> {
  public:
    ~Tracer();

    // Formats one line with the printf format and queues it, when lineLevel
    // passes the filter level. The level is compared here, in the caller,
    // before anything else: a filtered call costs one atomic load and makes
    // no call, formats nothing and takes no lock. The call's arguments are
    // still evaluated, as for any function, so a caller whose arguments cost
    // something to build checks enabled() first. The line's tag (its first
    // three characters), not lineLevel, decides the level the sinks hear.
    // The compiler does not check the format against the arguments; pass
    // only what printf takes (no std::string). A null format queues nothing.
    // Each program keeps its own copies of this template; none is exported.
    template <typename... Args>
    __attribute__((visibility("hidden"))) void print(int lineLevel, const char* format,
                                                     Args... args) {
        if (!enabled(lineLevel)) return;
        printLine(format, args...);
    }
    // Queues one line in the library's own shape, for a program's own
    // classes and for header-only library code:
    //     "<E>2026-03-05 07:08:09 [Modem::open,L42] text"
    // The tag is D, I, W, E or F for lineLevel 0 to 4; other levels queue
    // nothing. A null or empty cls gives the static form "[open,L42]". The
    // level check is inline, as print's; the text is formatted like print's.
    template <typename... Args>
    __attribute__((visibility("hidden"))) void printAt(int lineLevel, const char* cls,
                                                       const char* method, int line,
                                                       const char* format, Args... args) {
        if (!enabled(lineLevel)) return;
        printLineAt(lineLevel, cls, method, line, format, args...);
    }
    // Stores 0..4 as the filter level; every sink hears the value (negative as 0).
    void setLevel(int level);
    // The filter level. Any thread.
    int getLevel() const { return level.load(); }
    // True when a line of this level passes the filter.
    bool enabled(int lineLevel) const { return lineLevel >= level.load(); }
    // Adds a sink to the ones every line goes to; ignored for an empty pointer or while the sink
    // thread runs. Before start().
    void addSink(std::shared_ptr<TracerSink> sink);
    // Starts the sink thread, which delivers queued lines every 10 ms; nothing when running.
    void start();
    // Calls every sink's onFlushed() on the calling thread; the queued lines are
    // left to the sink thread.
    void flush();
    // One delivery pass of every queued line; the sink thread runs it every 10 ms.
    void sinkMsg();

  private:
    friend class Singleton<Tracer>;
    Tracer();
    // The work of print once the line has passed the filter.
    void printLine(const char* format, ...);
    // The work of printAt once the line has passed the filter.
    void printLineAt(int lineLevel, const char* cls, const char* method, int line,
                     const char* format, ...);
    void sinkLoop();

    std::string name;
    bool stdSinkAdded = false;
    std::atomic<int> level;
    std::atomic<bool> running;
    std::future<void> sinkTask;
    std::mutex queueMutex;
    std::mutex sinkMutex;
    // Lines waiting for delivery, packed in order, each after its 16-bit length:
    // one allocation for many lines instead of one per line.
    std::string pending;
    // Emptied queue storage waiting to become the next pending queue.
    std::string spare;
    std::vector<std::shared_ptr<TracerSink>> sinks;
};

// The Tracer, looked up once per program; every program keeps its own copy of
// this function, so a log macro reads the level without calling the library.
inline Tracer& tracer() {
    static Tracer& instance = Tracer::getInstance();
    return instance;
}

// Never defined and never called: the log macros name it in an unevaluated
// operand so that the compiler checks a line's format against its arguments.
int checkLogFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Measures a scope: on destruction, logs "trace duration: <s.us> s" at info
// level when at least thresholdMs milliseconds passed (0 always logs).
class ORVANE_API TraceDuration {
  public:
    // Starts measuring the scope called `name`; logs when destroyed after at least `thresholdMs`.
    TraceDuration(const std::string& name, unsigned int thresholdMs);
    ~TraceDuration();
    TraceDuration(const TraceDuration&) = delete;
    TraceDuration& operator=(const TraceDuration&) = delete;

    // Seconds since construction, on the monotonic clock.
    double duration() const;

  private:
    std::string name;
    unsigned int thresholdMs;
    Time start;
};

}  // namespace orvane

// A program's own log lines, in the shape of the library's lines:
//
//     ORVANE_LOG_INFO("Modem", "opened %s at %d baud", path, baud);
//         -> "<I>2026-11-25 17:40:07 [Modem::open,L42] opened /dev/ttyS1 at 115200 baud"
//
// The first argument names the class or part of the program (a C string; ""
// leaves it out: "[open,L42]"); the operation and line are where the macro
// stands. The rest is a printf format and its arguments, checked by the
// compiler (pass std::string through .c_str()). A line below the Tracer's
// level costs one load and compare: its arguments are not even evaluated.
// Any thread may log; the line appears within about 10 ms once start() ran.
#define ORVANE_LOG_AT(level, tag, ...)                                             \
    do {                                                                           \
        (void)sizeof(::orvane::checkLogFormat(__VA_ARGS__));                       \
        ::orvane::Tracer& orvaneLogTracer_ = ::orvane::tracer();                   \
        if (orvaneLogTracer_.enabled(level)) {                                     \
            orvaneLogTracer_.printAt(level, tag, __func__, __LINE__, __VA_ARGS__); \
        }                                                                          \
    } while (0)
#define ORVANE_LOG_DEBUG(tag, ...) ORVANE_LOG_AT(0, tag, __VA_ARGS__)
#define ORVANE_LOG_INFO(tag, ...) ORVANE_LOG_AT(1, tag, __VA_ARGS__)
#define ORVANE_LOG_WARN(tag, ...) ORVANE_LOG_AT(2, tag, __VA_ARGS__)
#define ORVANE_LOG_ERROR(tag, ...) ORVANE_LOG_AT(3, tag, __VA_ARGS__)
#define ORVANE_LOG_FATAL(tag, ...) ORVANE_LOG_AT(4, tag, __VA_ARGS__)
