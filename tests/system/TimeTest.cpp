#include <orvane/Time.h>

#include <cmath>

#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(Time, NormalisesKeepsOneSignThroughArithmeticAndTakesToleranceAsABandWidth) {
    const std::pair<Time, Time> same[] = {
        {Time(1, 2500000), Time(3, 500000)},
        {Time(-2.75), Time(-2, -750000)},
        {Time(std::nan("")), Time()},
        {Time(3, 0) - Time(5, 500000), Time(-2, -500000)},
        {Time(1, -500000) + Time(), Time(0, 500000)}};  // mixed signs come out in one
    for (const auto& s : same) EXPECT_EQ(s.first, s.second) << s.second.toString();
    EXPECT_EQ(Time(1e300).sec(), 9200000000000);
    // 11 / 2 is 5
    EXPECT_TRUE(Time(10, 499995).isNear(Time(10, 500000), 11) &&
                !Time(10, 500006).isNear(Time(10, 500000), 11));
}

TEST(DateTime, ConvertsInTheZoneItSetsAndCountsLeapYearsAndWeekdaysItsOwnWay) {
    setenv("TZ", "CST-8", 1);  // eight hours east of UTC, no daylight saving
    tzset();
    DateTime local(Time(1704067200L + 3661L, 500999L));          // 2024-01-01 01:01:01.500999 UTC
    EXPECT_EQ(local.toString(true), "2024-01-01 09:01:01.500");  // milliseconds too
    EXPECT_EQ(local.toUTC().toString(), "2024-01-01 01:01:01");
    EXPECT_EQ(DateTime(1960, 6, 1, 0, 0, 0).toEpochTime(), Time());  // no epoch time before 1970
    // setTimeZone writes whole hours after "UTC"; POSIX reads them as hours
    // west of UTC, so tzDiffSecs has the other sign.
    EXPECT_TRUE(DateTime::setTimeZone(28800) && getenv("TZ") == std::string("UTC8") &&
                DateTime::tzDiffSecs(false) == -28800);
    EXPECT_TRUE(DateTime::setTimeZone(-5400) && DateTime::tzDiffSecs(false) == 3600);  // UTC-1
    setenv("TZ", "EET-2EEST,0/0,J365/25", 1);  // daylight saving all year round
    EXPECT_EQ(DateTime::tzDiffSecs(false) + DateTime::tzDiffSecs(true), 7200 + 10800);
    unsetenv("TZ");
    tzset();

    // No four-hundred-year rule.
    EXPECT_FALSE(DateTime(2000, 1, 1, 0, 0, 0).isLeapYear());
    // Thursday 4 October 1582 (Julian) was followed by Friday 15 October (Gregorian).
    const int days[][4] = {{1582, 10, 4, 4}, {1582, 10, 15, 5}, {2000, 3, 1, 3}, {2023, 12, 31, 0}};
    for (const auto& d : days) {
        EXPECT_EQ(DateTime(d[0], d[1], d[2], 0, 0, 0).weekday(), d[3]) << d[0] << "-" << d[1];
    }
}

TEST(DateTime, HardwareClockWithoutDeviceGivesDefaultAndError) {
    if (access("/dev/rtc0", F_OK) == 0) GTEST_SKIP() << "this machine has /dev/rtc0";
    test::expectRefusal([] { return !(DateTime::getRtcTime() == DateTime()); },
                        "<E>DATE [getRtcTime,L#] @DateTime, open rtc error:No such file or "
                        "directory.");
}

// A late loop does not catch up: the period restarts where the late sleep returned.
TEST(Rate, PeriodIsAMillionOverHzAndSleepPacesALoopWithoutCatchingUp) {
    const std::pair<float, uint64_t> rates[] = {
        {0.5f, 2000000u}, {-4.0f, 250000u}, {0.0f, 2147483647u}, {2e7f, 1u}};
    for (const auto& r : rates) EXPECT_EQ(Rate(r.first).period(), r.second) << r.first;
    const int64_t periodUs = 5000;  // 200 Hz
    Rate rate(200.0f);
    Time begin = Time::fromMono();  // the period starts again after this
    rate.reset(-5.0f);              // keeps the period
    auto sleepUs = [&rate] {
        Time start = Time::fromMono();
        EXPECT_TRUE(rate.sleep());
        return Time::usSinceMono(start);
    };
    sleepUs();
    sleepUs();
    EXPECT_GE(Time::usSinceMono(begin), 2 * periodUs);
    std::this_thread::sleep_for(std::chrono::microseconds(3 * periodUs));
    Time late = Time::fromMono();
    EXPECT_LT(sleepUs(), periodUs);  // late: returns at once
    sleepUs();                       // then a whole period, not another at once
    EXPECT_GE(Time::usSinceMono(late), periodUs);
}

}  // namespace
}  // namespace orvane
