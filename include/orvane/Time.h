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
// Time(sec, usec) folds whole seconds of usec into sec with truncating
// division, so a negative usec leaves negative microseconds: Time(1, -500000)
// is 1 s and -500000 us. Sums and differences are normalised the same way
// (both fields carry the sign of the result), so comparing them field by
// field orders them by value; toString() of a negative span prints both
// signs ("-2.-500000").
class ORVANE_API Time {
  public:
    Time() = default;
    // `sec` seconds and `usec` microseconds, normalised so that usec stays within one second.
    Time(long sec, long usec);
    // Truncated toward zero, to the microsecond; NaN gives 0, and the seconds
    // are kept within +-9.2e12 so that toMicroSec() cannot overflow.
    explicit Time(double seconds);
    // A span of `microseconds`.
    // On 32-bit targets unsigned long ends at 2^32 us (71 minutes); there
    // fromMicroSec() carries any count.
    explicit Time(unsigned long microseconds);
    // The time in a timeval.
    explicit Time(const timeval& tv);
    // The time in a timespec, truncated to the microsecond.
    explicit Time(const timespec& ts);
    // Copies are plain values.
    Time(const Time&) = default;
    // Copies are plain values.
    Time& operator=(const Time&) = default;
    virtual ~Time() = default;

    // Whole seconds.
    int64_t sec() const { return sec_; }
    // Microseconds within the second.
    int64_t usec() const { return usec_; }
    // As a timeval.
    timeval toTimeval() const;
    // The whole time in microseconds.
    int64_t toMicroSec() const { return sec_ * 1000000 + usec_; }
    // The whole time in seconds.
    double toSec() const { return static_cast<double>(sec_) + static_cast<double>(usec_) / 1e6; }
    // Whole seconds (all 64 bits, on every target), a point and six digits of
    // microseconds: "12.000500".
    std::string toString() const;
    // True when |this - other| in microseconds is at most tolerance / 2:
    // tolerance is the width of a band centred on other.
    bool isNear(const Time& other, unsigned int tolerance) const;

    // A count of microseconds of either sign as a Time, normalised as a
    // difference is (both fields carry the sign). The full 64-bit range on
    // every target, where Time(unsigned long) and Time(long, long) stop at
    // 32 bits on 32-bit ones. Any thread; a few instructions.
    static Time fromMicroSec(int64_t microseconds);
    // Now on the epoch clock (CLOCK_REALTIME).
    static Time fromEpoch();
    // Now on the monotonic clock (CLOCK_MONOTONIC).
    static Time fromMono();
    // Microseconds elapsed on the monotonic clock since start.
    static int64_t usSinceMono(const Time& start);

    // Sum of two times, normalised.
    Time operator+(const Time& other) const;
    // Difference of two times, normalised.
    Time operator-(const Time& other) const;
    // Field by field, seconds first.
    bool operator==(const Time& other) const;
    // Field by field, seconds first.
    bool operator!=(const Time& other) const { return !(*this == other); }
    // Field by field, seconds first.
    bool operator<(const Time& other) const;
    // Field by field, seconds first.
    bool operator>(const Time& other) const;

  private:
    int64_t sec_ = 0;
    int64_t usec_ = 0;
};

// A broken-down local calendar date and time. toString() is the time field of
// every log line: "%d-%02d-%02d %02d:%02d:%02d". A plain value; the static
// setters change process-wide or machine-wide state (the clock, TZ, the
// hardware clock) and belong to one thread at a time.
// Failures are logged once with strerror's text and reported by a false
// result or a default DateTime; nothing throws.
// Deliberate calendar rules: isLeapYear() has no 400-year exception (2000 is
// not a leap year), and weekday() counts dates up to 1582-10-04 as Julian.
// setTimeZone(28800) puts TZ=UTC8 into the environment, which POSIX reads as
// eight hours WEST of UTC.
class ORVANE_API DateTime {
  public:
    DateTime() = default;
    // Local time of t's seconds; milliseconds from its microseconds; dst -1.
    explicit DateTime(const Time& t);
    // The given local date and time, 0 ms; no check of the values.
    DateTime(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute,
             unsigned second);

    // The fields as local time (mktime, dst decided by the zone), 0 us;
    // a time mktime cannot represent, or one before the epoch, gives 0.
    // Milliseconds are dropped.
    Time toEpochTime() const;
    // This local time in UTC; milliseconds become 0, dst 0.
    DateTime toUTC() const;
    // 0 Sunday .. 6 Saturday.
    int weekday() const;
    // Every fourth year, with the 100-year exception and without the 400-year one.
    bool isLeapYear() const;
    // "%d-%02d-%02d %02d:%02d:%02d": the time field of every log line.
    std::string toString() const;
    // toString() with withMilliseconds false; with it true, ".mmm" follows the
    // seconds ("2026-11-25 17:40:07.042"), as a timestamp in a data log wants.
    std::string toString(bool withMilliseconds) const;

    // Seconds east of UTC of the local zone; with withDst and daylight
    // saving in force, 3600 more.
    static int tzDiffSecs(bool withDst);
    // The zone named in /etc/timezone (trailing blanks trimmed) when the
    // file exists, else the standard zone name of the process (tzname[0]).
    static std::string timeZone();
    // Now: local time of time(NULL) with its dst flag, milliseconds from the epoch clock.
    static DateTime getDateTime();
    // Puts TZ=UTC<whole hours> into this process's environment and re-reads it.
    static bool setTimeZone(const int& offsetSeconds);
    // Sets the system clock to the given local time, whole seconds.
    static bool setDateTime(const DateTime& value);
    // Sets the system clock to t and the kernel's zone to offsetSeconds / 60
    // minutes west with the dst flag, then TZ to "UTC" or "UTC%+d:00".
    static bool setDateTime(const Time& t, const int& offsetSeconds, bool dst);
    // Sets zone and clock through the time daemon (timedatectl, run by the
    // shell; may take a while). NTP is switched off first. When zone differs
    // from timeZone(), it is also written to /etc/timezone; TZ of this
    // process becomes zone. An empty zone keeps the current one; a zone name
    // holding anything but letters, digits and "/_+-." is refused.
    static bool setDateTime(const Time& t, const std::string& zone);
    // The hardware clock (/dev/rtc0); the default value when it cannot be read.
    static DateTime getRtcTime();
    // Writes the given time to the hardware clock (/dev/rtc0); false (logged) when it cannot be
    // opened or set.
    static bool setRtcTime(const DateTime& value);

    // Field by field, most significant first, down to the millisecond; the
    // dst flag describes the zone, not the moment, and is not compared.
    bool operator==(const DateTime& other) const;
    // Field by field; the dst flag is not compared.
    bool operator!=(const DateTime& other) const { return !(*this == other); }
    // Field by field; the dst flag is not compared.
    bool operator<(const DateTime& other) const;
    // Field by field; the dst flag is not compared.
    bool operator>(const DateTime& other) const;

    // Year, e.g. 2026.
    int year = 0;
    // Month, 1..12.
    int month = 0;
    // Day of the month, 1..31.
    int day = 0;
    // Hour, 0..23.
    int hour = 0;
    // Minute, 0..59.
    int minute = 0;
    // Second, 0..60.
    int second = 0;
    // Millisecond, 0..999.
    int millisecond = 0;
    // Daylight saving: positive in force, 0 not, negative unknown.
    int dst = -1;
};

// Paces a loop at a fixed frequency on the monotonic clock. The period is
// 1000000 / |hz| us, at least 1 and at most 2147483647. A loop that falls
// two or more periods behind restarts its period at now instead of catching
// up. Not thread-safe: one Rate belongs to one loop.
class ORVANE_API Rate {
  public:
    // Paces at `hz` from now (see the class comment for the period).
    explicit Rate(float hz);
    // Copies are plain values.
    Rate(const Rate&) = default;
    // Copies are plain values.
    Rate& operator=(const Rate&) = default;

    // A new period when hz > 0 (else the old one stays); the period restarts now.
    void reset(float hz);
    // Sleeps for what is left of the current period, then moves to the next.
    bool sleep();
    // Non-sleeping form: false while the period runs, else moves on and returns true.
    // The argument is not used by the pacing rule.
    bool wakeup(float hz = 0);
    // The period in microseconds.
    uint64_t period() const { return period_; }

  private:
    static uint64_t periodOf(float hz);

    Time start_;
    uint64_t period_;
};

}  // namespace orvane
