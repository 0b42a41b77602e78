#include <gtest/gtest.h>
#include <orvane/Thread.h>
#include <orvane/Time.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "support/LogCapture.h"
#include "system/PrivateMount.h"

namespace orvane {
namespace {

// Sets this process's TZ for one test and restores it afterwards.
class ZoneGuard {
  public:
    explicit ZoneGuard(const char* tz) {
        const char* old = getenv("TZ");
        hadZone = old != nullptr;
        if (hadZone) saved = old;
        if (tz != nullptr) setenv("TZ", tz, 1);
        tzset();
    }
    ~ZoneGuard() {
        if (hadZone) {
            setenv("TZ", saved.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

  private:
    bool hadZone = false;
    std::string saved;
};

std::string envTZ() {
    const char* tz = getenv("TZ");
    return tz != nullptr ? tz : "(unset)";
}

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Checks made inside a death-test child, where gtest's assertions do not
// reach the parent: a mismatch is written to stderr (shown by the parent on
// failure) and makes the child exit non-zero.
struct ChildChecks {
    int failures = 0;
    template <typename T, typename U>
    void eq(const T& actual, const U& expected, const char* what) {
        if (actual == expected) return;
        std::ostringstream text;
        text << what << ": got [" << actual << "] expected [" << expected << "]\n";
        fputs(text.str().c_str(), stderr);
        ++failures;
    }
    void done() { _exit(failures == 0 ? 0 : 1); }
};

// In a child that has given up root (group first, then user), where the
// clock and zone setters fail whatever they are asked to do.
void dropRoot() {
    if (setgid(65534) != 0 || setuid(65534) != 0 || getuid() == 0 || geteuid() == 0) {
        fputs("cannot drop root\n", stderr);
        _exit(2);
    }
}

#define SKIP_UNLESS_ROOT()                                                          \
    if (getuid() != 0) GTEST_SKIP() << "needs root to start an unprivileged child"; \
    static_assert(true, "")

TEST(Time, NormalisesMicrosecondsFromEveryConstructor) {
    Time carry(1, 2500000);
    EXPECT_EQ(carry.sec(), 3);
    EXPECT_EQ(carry.usec(), 500000);
    Time negative(1, -2500000);
    EXPECT_EQ(negative.sec(), -1);
    EXPECT_EQ(negative.usec(), -500000);
    EXPECT_EQ(negative.toMicroSec(), -1500000);
    Time mixed(1, -500000);  // kept as given: truncating division, no borrow
    EXPECT_EQ(mixed.sec(), 1);
    EXPECT_EQ(mixed.usec(), -500000);

    EXPECT_EQ(Time(2.75), Time(2, 750000));
    EXPECT_EQ(Time(-2.75), Time(-2, -750000));
    EXPECT_EQ(Time(3500001UL), Time(3, 500001));
    EXPECT_EQ(Time(timeval{4, 999999}), Time(4, 999999));
    EXPECT_EQ(Time(timespec{5, 1999}), Time(5, 1));
    EXPECT_EQ(Time(), Time(0, 0));
    EXPECT_EQ(Time(std::nan("")), Time());
    EXPECT_EQ(Time(1e300).sec(), 9200000000000);
    EXPECT_EQ(Time(-HUGE_VAL).sec(), -9200000000000);

    EXPECT_EQ(Time(3, 5).toString(), "3.000005");
    EXPECT_EQ(Time(1, 250000).toSec(), 1.25);
    timeval tv = Time(7, 42).toTimeval();
    EXPECT_EQ(tv.tv_sec, 7);
    EXPECT_EQ(tv.tv_usec, 42);
}

TEST(Time, ArithmeticCarriesBorrowsAndKeepsOneSign) {
    EXPECT_EQ(Time(1, 600000) + Time(2, 700000), Time(4, 300000));
    Time borrowed = Time(5, 100) - Time(3, 900000);
    EXPECT_EQ(borrowed, Time(1, 100100));
    EXPECT_EQ(borrowed.toString(), "1.100100");
    Time below = Time(3, 0) - Time(5, 500000);
    EXPECT_EQ(below.sec(), -2);
    EXPECT_EQ(below.usec(), -500000);
    EXPECT_EQ(below.toMicroSec(), -2500000);
    EXPECT_EQ(below + Time(5, 500000), Time(3, 0));
    // Sums of mixed-sign values come out in one sign.
    EXPECT_EQ(Time(1, -500000) + Time(0, 0), Time(0, 500000));

    EXPECT_LT(borrowed, Time(1, 200000));
    EXPECT_GT(Time(2, 0), Time(1, 999999));
    EXPECT_LT(below, Time());
    EXPECT_NE(Time(1, 1), Time(1, 2));
    Time copy;
    copy = borrowed;
    EXPECT_EQ(copy, borrowed);
}

TEST(Time, IsNearTakesToleranceAsTheWidthOfABand) {
    Time centre(10, 500000);
    EXPECT_TRUE(Time(10, 500005).isNear(centre, 10));
    EXPECT_TRUE(Time(10, 499995).isNear(centre, 10));
    EXPECT_FALSE(Time(10, 500006).isNear(centre, 10));
    EXPECT_FALSE(Time(10, 499994).isNear(centre, 10));
    EXPECT_TRUE(Time(10, 500005).isNear(centre, 11));  // 11 / 2 is 5
    EXPECT_FALSE(Time(10, 500006).isNear(centre, 11));
    EXPECT_TRUE(Time(1, 999998).isNear(Time(2, 2), 8));
    EXPECT_TRUE(centre.isNear(centre, 0));
    EXPECT_FALSE(Time(10, 500001).isNear(centre, 1));
}

TEST(DateTime, ConvertsBetweenEpochTimeAndLocalFields) {
    ZoneGuard zone("CST-8");                   // eight hours east of UTC, no daylight saving
    Time epoch(1704067200L + 3661L, 500999L);  // 2024-01-01 01:01:01.500999 UTC
    DateTime local(epoch);
    EXPECT_EQ(local.toString(), "2024-01-01 09:01:01");
    EXPECT_EQ(local.millisecond, 500);
    EXPECT_EQ(local.dst, -1);
    EXPECT_EQ(local.toEpochTime(), Time(1704067200L + 3661L, 0L));

    DateTime utc = local.toUTC();
    EXPECT_EQ(utc.toString(), "2024-01-01 01:01:01");
    EXPECT_EQ(utc.millisecond, 0);
    EXPECT_EQ(DateTime(2024, 1, 1, 7, 0, 0).toUTC().toString(), "2023-12-31 23:00:00");

    DateTime made(2024, 2, 29, 23, 59, 58);
    EXPECT_EQ(made.toString(), "2024-02-29 23:59:58");
    EXPECT_EQ(made.millisecond, 0);
    EXPECT_EQ(made.dst, -1);
    EXPECT_EQ(DateTime(made.toEpochTime()), made);
    // Before the epoch there is no epoch time.
    EXPECT_EQ(DateTime(1960, 6, 1, 0, 0, 0).toEpochTime(), Time());
    EXPECT_EQ(DateTime().toString(), "0-00-00 00:00:00");
    EXPECT_EQ(DateTime().dst, -1);
}

TEST(DateTime, ComparesFieldsMostSignificantFirstButNotTheDstFlag) {
    DateTime a(2024, 5, 6, 7, 8, 9);
    DateTime later = a;
    later.millisecond = 1;
    EXPECT_LT(a, later);
    EXPECT_GT(later, a);
    EXPECT_LT(DateTime(2023, 12, 31, 23, 59, 59), DateTime(2024, 1, 1, 0, 0, 0));
    DateTime otherDst = a;
    otherDst.dst = 1;
    EXPECT_EQ(a, otherDst);
    EXPECT_FALSE(a < otherDst || a > otherDst);
}

TEST(DateTime, LeapYearsHaveNoFourHundredYearRule) {
    EXPECT_FALSE(DateTime(2000, 1, 1, 0, 0, 0).isLeapYear());
    EXPECT_TRUE(DateTime(2024, 1, 1, 0, 0, 0).isLeapYear());
    EXPECT_FALSE(DateTime(1900, 1, 1, 0, 0, 0).isLeapYear());
    EXPECT_FALSE(DateTime(2023, 1, 1, 0, 0, 0).isLeapYear());
}

TEST(DateTime, WeekdaysFollowJulianThenGregorianCalendar) {
    EXPECT_EQ(DateTime(2024, 1, 1, 0, 0, 0).weekday(), 1);    // Monday
    EXPECT_EQ(DateTime(2024, 2, 29, 0, 0, 0).weekday(), 4);   // Thursday
    EXPECT_EQ(DateTime(2000, 3, 1, 0, 0, 0).weekday(), 3);    // Wednesday
    EXPECT_EQ(DateTime(1970, 1, 1, 0, 0, 0).weekday(), 4);    // Thursday
    EXPECT_EQ(DateTime(2023, 12, 31, 0, 0, 0).weekday(), 0);  // Sunday
    EXPECT_EQ(DateTime(2026, 11, 21, 0, 0, 0).weekday(), 6);  // Saturday
    // The switch: Thursday 4 October 1582 (Julian) was followed by Friday 15 October.
    EXPECT_EQ(DateTime(1582, 10, 4, 0, 0, 0).weekday(), 4);
    EXPECT_EQ(DateTime(1582, 10, 15, 0, 0, 0).weekday(), 5);
    EXPECT_EQ(DateTime(1582, 10, 3, 0, 0, 0).weekday(), 3);

    DateTime today = DateTime::getDateTime();
    time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    if (local.tm_mday == today.day) {
        EXPECT_EQ(today.weekday(), local.tm_wday);
    }
}

TEST(DateTime, GetDateTimeIsNowWithDstAndMilliseconds) {
    DateTime now = DateTime::getDateTime();
    DateTime fromClock(Time::fromEpoch());
    EXPECT_LE(std::llabs(now.toEpochTime().sec() - fromClock.toEpochTime().sec()), 1);
    EXPECT_GE(now.millisecond, 0);
    EXPECT_LE(now.millisecond, 999);
    EXPECT_TRUE(now.dst == 0 || now.dst == 1) << now.dst;
    EXPECT_GE(now.year, 2024);
}

TEST(DateTime, SetTimeZoneWritesWholeHoursAfterUTC) {
    ZoneGuard zone(nullptr);
    EXPECT_TRUE(DateTime::setTimeZone(28800));
    EXPECT_EQ(envTZ(), "UTC8");
    // POSIX reads the digits as hours west of UTC.
    EXPECT_EQ(DateTime::tzDiffSecs(false), -28800);
    EXPECT_TRUE(DateTime::setTimeZone(-18000));
    EXPECT_EQ(envTZ(), "UTC-5");
    EXPECT_EQ(DateTime::tzDiffSecs(true), 18000);
    EXPECT_TRUE(DateTime::setTimeZone(-5400));  // truncated toward zero
    EXPECT_EQ(envTZ(), "UTC-1");
    EXPECT_TRUE(DateTime::setTimeZone(0));
    EXPECT_EQ(envTZ(), "UTC0");
    EXPECT_EQ(DateTime::tzDiffSecs(true), 0);
}

TEST(DateTime, TzDiffSecsAddsAnHourOnlyWhileDaylightSavingIsInForce) {
    // Daylight saving all year round: two hours east in standard time, one more in summer.
    ZoneGuard zone("EET-2EEST,0/0,J365/25");
    EXPECT_EQ(DateTime::tzDiffSecs(false), 7200);
    EXPECT_EQ(DateTime::tzDiffSecs(true), 10800);
}

TEST(DateTime, TimeZoneNamesTheSystemZone) {
    std::string zone = DateTime::timeZone();
    if (access("/etc/timezone", F_OK) == 0) {
        std::string text = readText("/etc/timezone");
        EXPECT_EQ(text.compare(0, zone.size(), zone), 0) << text;
        EXPECT_EQ(text.find_first_not_of(" \t\r\n", zone.size()), std::string::npos);
    } else {
        ZoneGuard guard(nullptr);
        EXPECT_EQ(zone, tzname[0]);
    }
    EXPECT_FALSE(zone.empty());
    EXPECT_EQ(zone.find_last_of(" \t\r\n"), std::string::npos);
}

// Death-test child: without /etc/timezone the zone is the process's standard zone name.
void zoneWithoutEtc() {
    setenv("TZ", "CST-8", 1);
    if (!test::hideDirectory("/etc")) _exit(2);
    std::string zone = DateTime::timeZone();
    fprintf(stderr, "zone [%s]\n", zone.c_str());
    _exit(zone == "CST" ? 0 : 1);
}

TEST(DateTimeDeathTest, TimeZoneFallsBackToTheStandardZoneName) {
    if (!test::canHideDirectory("/etc")) GTEST_SKIP() << "no private mount namespace here";
    EXPECT_EXIT(zoneWithoutEtc(), ::testing::ExitedWithCode(0), "");
}

TEST(DateTime, HardwareClockWithoutDeviceGivesDefaultAndError) {
    if (access("/dev/rtc0", F_OK) == 0) GTEST_SKIP() << "this machine has /dev/rtc0";
    auto& capture = test::LogCapture::get();
    int fds = test::openFdCount();
    EXPECT_EQ(DateTime::getRtcTime(), DateTime());
    EXPECT_EQ(capture.waitLine("[getRtcTime,"),
              "<E>DATE [getRtcTime,L#] @DateTime, open rtc error:No such file or directory.");
    EXPECT_FALSE(DateTime::setRtcTime(DateTime(2024, 1, 1, 0, 0, 0)));
    EXPECT_EQ(capture.waitLine("[setRtcTime,"),
              "<E>DATE [setRtcTime,L#] @DateTime, open rtc error:No such file or directory.");
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(DateTimeDeathTest, ClockSettersFailWithoutPrivilege) {
    SKIP_UNLESS_ROOT();
    EXPECT_EXIT(
        {
            dropRoot();
            auto& capture = test::LogCapture::get();
            ChildChecks check;
            std::string zoneBefore = envTZ();
            check.eq(DateTime::setDateTime(DateTime(2030, 1, 2, 3, 4, 5)), false, "local");
            check.eq(capture.waitLine("set time error"),
                     "<E>DATE [setDateTime,L#] @DateTime, set time error: Operation not "
                     "permitted !",
                     "local line");
            capture.clear();
            check.eq(DateTime::setDateTime(Time(1893456000L, 0L), 3600, true), false, "offset");
            check.eq(capture.waitLine("set time error"),
                     "<E>DATE [setDateTime,L#] @DateTime, set time error: Operation not "
                     "permitted !",
                     "offset line");
            check.eq(envTZ(), zoneBefore, "TZ after failure");
            // Before the epoch: refused before the clock is touched.
            capture.clear();
            check.eq(DateTime::setDateTime(DateTime(1960, 1, 1, 0, 0, 0)), false, "pre-epoch");
            check.eq(capture.waitLine("make time error")
                         .find("<E>DATE [setDateTime,L#] @DateTime, make time error: "),
                     0u, "pre-epoch line");
            check.eq(capture.matching("set time error").size(), 0u, "clock untouched");
            check.done();
        },
        ::testing::ExitedWithCode(0), "");
}

// A stand-in for the time daemon's client: records its arguments, one call a
// line, and fails "set-time" when told to.
void installFakeTimedatectl(const std::string& dir, bool failSetTime) {
    mkdir(dir.c_str(), 0700);
    std::ofstream script(dir + "/timedatectl");
    script << "#!/bin/sh\necho \"$*\" >> " << dir << "/calls\n";
    if (failSetTime) script << "[ \"$1\" = set-time ] && exit 1\n";
    script << "exit 0\n";
    script.close();
    chmod((dir + "/timedatectl").c_str(), 0700);
    setenv("PATH", (dir + ":/usr/bin:/bin").c_str(), 1);
}

void removeFake(const std::string& dir) {
    unlink((dir + "/timedatectl").c_str());
    unlink((dir + "/calls").c_str());
    rmdir(dir.c_str());
}

TEST(DateTimeDeathTest, ZoneSetterDrivesTheTimeDaemonThroughTheShell) {
    SKIP_UNLESS_ROOT();
    EXPECT_EXIT(
        {
            dropRoot();
            ChildChecks check;
            std::string dir = test::tempPath("timedatectl");
            installFakeTimedatectl(dir, false);
            std::string zone = DateTime::timeZone();
            Time t(1704067200L + 45296L, 0L);  // 2024-01-01 12:34:56 UTC
            check.eq(DateTime::setDateTime(t, zone), true, "same zone");
            check.eq(envTZ(), zone, "TZ follows the zone");
            check.eq(readText(dir + "/calls"),
                     "set-ntp false\nset-time " + DateTime(t).toString() + "\n", "calls");
            removeFake(dir);
            check.done();
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(DateTimeDeathTest, ZoneSetterReportsTheFailingCommand) {
    SKIP_UNLESS_ROOT();
    EXPECT_EXIT(
        {
            dropRoot();
            auto& capture = test::LogCapture::get();
            ChildChecks check;
            std::string dir = test::tempPath("timedatectl");
            installFakeTimedatectl(dir, true);
            Time t(1704067200L, 0L);

            // The time command fails: the line names it.
            check.eq(DateTime::setDateTime(t, ""), false, "set-time fails");
            check.eq(capture.waitLine("exec cmd"),
                     "<E>DATE [setDateTime,L#] @DataTime, exec cmd[timedatectl set-time '" +
                         DateTime(t).toString() + "'] error!",
                     "set-time line");

            // Another zone cannot be written to /etc/timezone without root.
            capture.clear();
            unlink((dir + "/calls").c_str());
            check.eq(DateTime::setDateTime(t, "Zone/Elsewhere"), false, "other zone");
            check.eq(capture.waitLine("exec cmd"),
                     "<E>DATE [setDateTime,L#] @DataTime, exec cmd[timedatectl set-ntp false; "
                     "export TZ=Zone/Elsewhere; timedatectl set-timezone Zone/Elsewhere ; echo "
                     "Zone/Elsewhere > /etc/timezone] error!",
                     "zone line");
            check.eq(readText(dir + "/calls"), "set-ntp false\nset-timezone Zone/Elsewhere\n",
                     "zone calls");

            // A name the shell would interpret is refused before anything runs.
            capture.clear();
            unlink((dir + "/calls").c_str());
            check.eq(DateTime::setDateTime(t, "UTC; touch " + dir + "/owned"), false, "bad zone");
            check.eq(capture.waitFor("exec cmd"), true, "bad zone line");
            check.eq(access((dir + "/calls").c_str(), F_OK), -1, "nothing ran");
            check.eq(access((dir + "/owned").c_str(), F_OK), -1, "no injection");
            removeFake(dir);
            check.done();
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(Rate, PeriodIsAMillionOverHzWithinBounds) {
    EXPECT_EQ(Rate(0.5f).period(), 2000000u);
    EXPECT_EQ(Rate(1e-9f).period(), 2147483647u);
    EXPECT_EQ(Rate(2e7f).period(), 1u);
    EXPECT_EQ(Rate(-4.0f).period(), 250000u);
    EXPECT_EQ(Rate(0.0f).period(), 2147483647u);
    EXPECT_EQ(Rate(3.0f).period(), 333333u);

    Rate rate(100.0f);
    rate.reset(0.0f);
    EXPECT_EQ(rate.period(), 10000u);
    rate.reset(-5.0f);
    EXPECT_EQ(rate.period(), 10000u);
    rate.reset(250.0f);
    EXPECT_EQ(rate.period(), 4000u);
    Rate copy = rate;
    EXPECT_EQ(copy.period(), 4000u);
}

TEST(Rate, SleepPacesALoopAndALateLoopDoesNotCatchUp) {
    const int64_t periodUs = 5000;
    Rate rate(200.0f);
    Time start = Time::fromMono();
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(rate.sleep());
    int64_t paced = Time::usSinceMono(start);
    EXPECT_GE(paced, 3 * periodUs - 500);
    EXPECT_LT(paced, 3 * periodUs + 200000);

    // Three periods of work: the next sleep returns at once and the period restarts now ...
    Thread::usleep(3 * periodUs);
    Time late = Time::fromMono();
    rate.sleep();
    EXPECT_LT(Time::usSinceMono(late), periodUs);
    // ... so the one after waits a whole period instead of returning at once.
    Time next = Time::fromMono();
    rate.sleep();
    EXPECT_GE(Time::usSinceMono(next), periodUs - 1000);
}

TEST(Rate, WakeupNeverSleepsAndDropsMissedPeriods) {
    Rate rate(100.0f);  // 10 ms
    Time start = Time::fromMono();
    EXPECT_FALSE(rate.wakeup(0));
    EXPECT_LT(Time::usSinceMono(start), 5000);
    Thread::usleep(10000);
    EXPECT_TRUE(rate.wakeup(0));
    EXPECT_FALSE(rate.wakeup(0));  // the next period began where the last ended

    Thread::usleep(30000);  // three periods late
    EXPECT_TRUE(rate.wakeup(0));
    EXPECT_FALSE(rate.wakeup(0));  // restarted at now: no burst of catch-up wakeups

    rate.reset(100.0f);
    EXPECT_FALSE(rate.wakeup(0));
}

}  // namespace
}  // namespace orvane
