#include <orvane/Thread.h>
#include <orvane/Time.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>

#include "base/DateTimeFields.h"
#include "base/DateTimeText.h"
#include "base/PeriodStart.h"

namespace orvane {

namespace {

Time now(clockid_t clock) {
    timespec ts{};
    clock_gettime(clock, &ts);
    return Time(ts);
}

}  // namespace

// ---- Time -------------------------------------------------------------------

Time::Time(long sec, long usec)
    : sec_(static_cast<int64_t>(sec) + usec / 1000000), usec_(usec % 1000000) {}

namespace {

// Seconds whose microseconds still fit in 64 bits (about 290000 years);
// NaN becomes 0.
double clampSeconds(double seconds) {
    const double limit = 9.2e12;
    if (std::isnan(seconds)) return 0.0;
    return std::max(-limit, std::min(limit, seconds));
}

}  // namespace

Time::Time(double seconds) : Time() {
    seconds = clampSeconds(seconds);
    sec_ = static_cast<int64_t>(seconds);
    usec_ = static_cast<int64_t>((seconds - std::trunc(seconds)) * 1000000.0);
}

Time::Time(unsigned long microseconds)
    : sec_(static_cast<int64_t>(microseconds / 1000000)),
      usec_(static_cast<int64_t>(microseconds % 1000000)) {}

Time Time::fromMicroSec(int64_t microseconds) {
    Time t;
    t.sec_ = microseconds / 1000000;
    t.usec_ = microseconds % 1000000;
    return t;
}

Time::Time(const timeval& tv) : sec_(tv.tv_sec), usec_(tv.tv_usec) {}

Time::Time(const timespec& ts) : sec_(ts.tv_sec), usec_(ts.tv_nsec / 1000) {}

timeval Time::toTimeval() const {
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(sec_);
    tv.tv_usec = static_cast<suseconds_t>(usec_);
    return tv;
}

std::string Time::toString() const {
    char text[48];
    int n = snprintf(text, sizeof text, "%" PRId64 ".%06d", sec_, static_cast<int>(usec_));
    return std::string(text, n > 0 ? static_cast<size_t>(n) : 0);
}

bool Time::isNear(const Time& other, unsigned int tolerance) const {
    int64_t diff = toMicroSec() - other.toMicroSec();
    if (diff < 0) diff = -diff;
    return diff <= static_cast<int64_t>(tolerance / 2);
}

Time Time::fromEpoch() { return now(CLOCK_REALTIME); }

Time Time::fromMono() { return now(CLOCK_MONOTONIC); }

int64_t Time::usSinceMono(const Time& start) { return (fromMono() - start).toMicroSec(); }

// Through the total in microseconds, so both fields of the result carry its
// sign and field-by-field comparison orders results by value.
Time Time::operator+(const Time& other) const {
    return fromMicroSec(toMicroSec() + other.toMicroSec());
}

Time Time::operator-(const Time& other) const {
    return fromMicroSec(toMicroSec() - other.toMicroSec());
}

bool Time::operator==(const Time& other) const {
    return sec_ == other.sec_ && usec_ == other.usec_;
}

bool Time::operator<(const Time& other) const {
    return sec_ < other.sec_ || (sec_ == other.sec_ && usec_ < other.usec_);
}

bool Time::operator>(const Time& other) const { return other < *this; }

// ---- DateTime ---------------------------------------------------------------

using detail::fromTm;
using detail::localSeconds;

DateTime::DateTime(const Time& t) {
    time_t seconds = static_cast<time_t>(t.sec());
    tm local{};
    localtime_r(&seconds, &local);
    *this = fromTm(local);
    millisecond = static_cast<int>(t.usec() / 1000);
}

DateTime::DateTime(unsigned y, unsigned mon, unsigned d, unsigned h, unsigned min, unsigned s)
    : year(static_cast<int>(y)),
      month(static_cast<int>(mon)),
      day(static_cast<int>(d)),
      hour(static_cast<int>(h)),
      minute(static_cast<int>(min)),
      second(static_cast<int>(s)) {}

Time DateTime::toEpochTime() const {
    time_t seconds = localSeconds(*this);
    return Time::fromMicroSec(seconds < 0 ? 0 : static_cast<int64_t>(seconds) * 1000000);
}

DateTime DateTime::toUTC() const {
    time_t seconds = static_cast<time_t>(toEpochTime().sec());
    tm utc{};
    gmtime_r(&seconds, &utc);
    DateTime dt = fromTm(utc);
    dt.dst = utc.tm_isdst;
    return dt;
}

int DateTime::weekday() const {
    int y = year;
    int m = month;
    if (m < 3) {
        y -= 1;
        m += 12;
    }
    int k = y % 100;
    int h = k + k / 4 + y / 400 - 2 * (y / 100) + (13 * (m + 1)) / 5 + day;
    // Dates after 4 October 1582 are Gregorian, earlier ones Julian.
    h += (static_cast<int64_t>(year) * 10000 + month * 100 + day > 15821004) ? -1 : 2;
    return (h % 7 + 7) % 7;
}

bool DateTime::isLeapYear() const { return year % 4 == 0 && year % 100 != 0; }

std::string DateTime::toString() const { return toString(false); }

std::string DateTime::toString(bool withMilliseconds) const {
    char text[112];
    int n = withMilliseconds ? snprintf(text, sizeof text, ORVANE_DATE_TIME_FORMAT ".%03d", year,
                                        month, day, hour, minute, second, millisecond)
                             : snprintf(text, sizeof text, ORVANE_DATE_TIME_FORMAT, year, month,
                                        day, hour, minute, second);
    return std::string(text, n > 0 ? static_cast<size_t>(n) : 0);
}

int DateTime::tzDiffSecs(bool withDst) {
    time_t now = time(nullptr);
    tm local{};
    tzset();
    localtime_r(&now, &local);
    int east = static_cast<int>(-timezone);
    if (withDst && local.tm_isdst > 0) east += 3600;
    return east;
}

DateTime DateTime::getDateTime() {
    time_t seconds = time(nullptr);
    tm local{};
    localtime_r(&seconds, &local);
    DateTime dt = fromTm(local);
    dt.dst = local.tm_isdst;
    dt.millisecond = static_cast<int>(Time::fromEpoch().usec() / 1000);
    return dt;
}

namespace {

// The fields most significant first, for comparisons.
bool lessThan(const DateTime& a, const DateTime& b) {
    const int left[] = {a.year, a.month, a.day, a.hour, a.minute, a.second, a.millisecond};
    const int right[] = {b.year, b.month, b.day, b.hour, b.minute, b.second, b.millisecond};
    for (size_t i = 0; i < sizeof left / sizeof left[0]; ++i) {
        if (left[i] != right[i]) return left[i] < right[i];
    }
    return false;
}

}  // namespace

bool DateTime::operator==(const DateTime& other) const {
    return !lessThan(*this, other) && !lessThan(other, *this);
}

bool DateTime::operator<(const DateTime& other) const { return lessThan(*this, other); }

bool DateTime::operator>(const DateTime& other) const { return lessThan(other, *this); }

// ---- Rate -------------------------------------------------------------------

uint64_t Rate::periodOf(float hz) {
    double period = 1000000.0 / std::fabs(static_cast<double>(hz));
    if (!(period >= 1.0)) return 1;  // also catches NaN
    if (period > 2147483647.0) return 2147483647;
    return static_cast<uint64_t>(period);
}

Rate::Rate(float hz) : start_(Time::fromMono()), period_(periodOf(hz)) {}

void Rate::reset(float hz) {
    if (hz > 0) period_ = periodOf(hz);
    start_ = Time::fromMono();
}

bool Rate::sleep() {
    int64_t elapsed = Time::usSinceMono(start_);
    if (static_cast<int64_t>(period_) > elapsed) {
        Thread::usleep(static_cast<int>(static_cast<int64_t>(period_) - elapsed));
    }
    start_ = detail::nextPeriodStart(start_, Time::fromMono(), static_cast<int64_t>(period_));
    return true;
}

bool Rate::wakeup(float /*hz*/) {
    Time now = Time::fromMono();
    if ((now - start_).toMicroSec() < static_cast<int64_t>(period_)) return false;
    start_ = detail::nextPeriodStart(start_, now, static_cast<int64_t>(period_));
    return true;
}

}  // namespace orvane
