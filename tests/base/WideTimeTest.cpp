// Spans and points in time beyond what 32 bits carry: 2^31 microseconds is
// 35 min 47 s, 2^31 seconds ends in January 2038. A 32-bit build must give
// the same answers as a 64-bit one.
#include <gtest/gtest.h>
#include <orvane/Time.h>
#include <stdlib.h>

#include <cstdint>
#include <string>

namespace orvane {
namespace {

constexpr int64_t kSecond = 1000000;

TEST(WideTime, SumsAndDifferencesKeepEveryMicrosecond) {
    const struct {
        Time left, right;
        bool add;
        int64_t sec, usec;
    } cases[] = {
        {Time(3000L, 0L), Time(0L, 0L), false, 3000, 0},  // 3e9 us, past 2^31
        {Time(0L, 0L), Time(3000L, 0L), false, -3000, 0},
        {Time(2100L, 600000L), Time(2100L, 700000L), true, 4201, 300000},
        {Time(5000000000.25), Time(1L, 0L), false, 4999999999, 250000},
        {Time(1L, 0L), Time(1L, 500000L), false, 0, -500000},
    };
    for (const auto& c : cases) {
        Time result = c.add ? c.left + c.right : c.left - c.right;
        EXPECT_EQ(result.sec(), c.sec)
            << c.left.toString() << (c.add ? " + " : " - ") << c.right.toString();
        EXPECT_EQ(result.usec(), c.usec) << c.left.toString();
    }
}

// What Delayer, EventNotifier::waitEvent, the timers and TraceDuration measure with.
TEST(WideTime, ElapsedMonotonicTimeIsRightPastHalfAnHour) {
    for (int64_t back : {int64_t{2148}, int64_t{3000}, int64_t{5000}, int64_t{200000}}) {
        Time start = Time::fromMono() - Time(static_cast<long>(back), 0L);
        int64_t elapsed = Time::usSinceMono(start);
        EXPECT_GE(elapsed, back * kSecond) << back << " s back";
        EXPECT_LT(elapsed, (back + 60) * kSecond) << back << " s back";
    }
}

TEST(WideTime, MicrosecondCountsBeyondThirtyTwoBitsBecomeTimes) {
    const struct {
        int64_t us, sec, usec;
    } cases[] = {
        {4294967296, 4294, 967296},  // 2^32 us
        {5000000000001, 5000000, 1},
        {-3000500000, -3000, -500000},
        {999999, 0, 999999},
    };
    for (const auto& c : cases) {
        Time t = Time::fromMicroSec(c.us);
        EXPECT_EQ(t.sec(), c.sec) << c.us;
        EXPECT_EQ(t.usec(), c.usec) << c.us;
        EXPECT_EQ(t.toMicroSec(), c.us);
    }
}

TEST(WideTime, TextCarriesAllTheSeconds) {
    const struct {
        Time t;
        const char* text;
    } cases[] = {
        {Time(5000000000.5), "5000000000.500000"},
        {Time(2147483648.0), "2147483648.000000"},
        {Time(-5000000000.0), "-5000000000.000000"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.t.toString(), c.text);
}

// Dates after 2038-01-19 03:14:07 UTC, converted both ways.
TEST(WideTime, DatesAfter2038ConvertBothWays) {
    const char* saved = getenv("TZ");
    std::string oldZone = saved != nullptr ? saved : "";
    setenv("TZ", "UTC0", 1);
    tzset();
    const struct {
        unsigned year, month, day, hour, minute, second;
        int64_t epoch;
    } cases[] = {
        {2038, 1, 19, 3, 14, 8, 2147483648},
        {2040, 1, 1, 0, 0, 0, 2208988800},
        {2106, 2, 7, 6, 28, 16, 4294967296},
    };
    for (const auto& c : cases) {
        DateTime date(c.year, c.month, c.day, c.hour, c.minute, c.second);
        EXPECT_EQ(date.toEpochTime().sec(), c.epoch) << date.toString();
        EXPECT_EQ(DateTime(Time(static_cast<double>(c.epoch))).toString(), date.toString());
    }
    if (saved != nullptr) {
        setenv("TZ", oldZone.c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}

}  // namespace
}  // namespace orvane
