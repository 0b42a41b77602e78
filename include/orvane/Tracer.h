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
class ORVANE_API Tracer : public Singleton<Tracer> {
  public:
    ~Tracer();

    void print(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // Stores 0..4 as the filter level; every sink hears the value (negative as 0).
    void setLevel(int level);
    int getLevel() const { return level.load(); }
    // True when a line of this level passes the filter.
    bool enabled(int lineLevel) const { return lineLevel >= level.load(); }
    void addSink(std::shared_ptr<TracerSink> sink);
    void start();
    void flush();
    // One delivery pass of every queued line; the sink thread runs it every 10 ms.
    void sinkMsg();

  private:
    friend class Singleton<Tracer>;
    Tracer();
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

// Measures a scope: on destruction, logs "trace duration: <s.us> s" at info
// level when at least thresholdMs milliseconds passed (0 always logs).
class ORVANE_API TraceDuration {
  public:
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
