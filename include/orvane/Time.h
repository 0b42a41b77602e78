#pragma once

#include <orvane/Export.h>
#include <sys/time.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace orvane {

// A point or a span of time in seconds and microseconds, read from the epoch
// clock (fromEpoch) or the monotonic clock (fromMono). A plain value: no
// locks, safe to copy between threads.
class ORVANE_API Time {
  public:
    Time() = default;
    Time(long sec, long usec);
    explicit Time(double seconds);
    explicit Time(unsigned long microseconds);
    explicit Time(const timeval& tv);
    explicit Time(const timespec& ts);
    Time(const Time&) = default;
    Time& operator=(const Time&) = default;
    virtual ~Time() = default;

    int64_t sec() const { return sec_; }
    int64_t usec() const { return usec_; }
    timeval toTimeval() const;
    int64_t toMicroSec() const { return sec_ * 1000000 + usec_; }
    double toSec() const { return static_cast<double>(sec_) + static_cast<double>(usec_) / 1e6; }
    // "%ld.%06d": whole seconds, a point, six digits of microseconds.
    std::string toString() const;
    // True when |this - other| in microseconds is at most tolerance / 2.
    bool isNear(const Time& other, unsigned int tolerance) const;

    static Time fromEpoch();
    static Time fromMono();
    // Microseconds elapsed on the monotonic clock since start.
    static int64_t usSinceMono(const Time& start);

    Time operator+(const Time& other) const;
    Time operator-(const Time& other) const;
    bool operator==(const Time& other) const;
    bool operator!=(const Time& other) const { return !(*this == other); }
    bool operator<(const Time& other) const;
    bool operator>(const Time& other) const;

  private:
    int64_t sec_ = 0;
    int64_t usec_ = 0;
};

// A broken-down local calendar date and time. toString() is the time field of
// every log line: "%d-%02d-%02d %02d:%02d:%02d".
class ORVANE_API DateTime {
  public:
    DateTime() = default;
    explicit DateTime(const Time& t);
    DateTime(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute,
             unsigned second);

    std::string toString() const;
    // Now: local time of time(NULL), with milliseconds from the epoch clock.
    static DateTime getDateTime();

    bool operator==(const DateTime& other) const;
    bool operator<(const DateTime& other) const;
    bool operator>(const DateTime& other) const;

    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int millisecond = 0;
    int dst = -1;
};

// Paces a loop at a fixed frequency on the monotonic clock. A loop that falls
// two or more periods behind restarts its period at now instead of catching
// up. Not thread-safe: one Rate belongs to one loop.
class ORVANE_API Rate {
  public:
    explicit Rate(float hz);

    // A new period when hz > 0 (else the old one stays); the period restarts now.
    void reset(float hz);
    // Sleeps for what is left of the current period, then moves to the next.
    bool sleep();
    // Non-sleeping form: false while the period runs, else moves on and returns true.
    // The argument is not used by the pacing rule.
    bool wakeup(float hz = 0);
    uint64_t period() const { return period_; }

  private:
    static uint64_t periodOf(float hz);
    void advance(int64_t elapsedUs);

    Time start_;
    uint64_t period_;
};

}  // namespace orvane
