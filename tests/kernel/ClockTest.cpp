#include <gtest/gtest.h>
#include <orvane/Time.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "support/LogCapture.h"
#include "support/ToolRun.h"

// The hardware clock (rtc_cmos, /dev/rtc0) and the system clock of the
// virtual machine, read back through busybox's hwclock and date.
namespace orvane {
namespace {

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

// Whole seconds between two calendar times read as the same zone.
long secondsBetween(const DateTime& a, const DateTime& b) {
    return static_cast<long>(b.toEpochTime().sec() - a.toEpochTime().sec());
}

// The system clock moved by a test is put back where it would have been.
class ClockRestore {
  public:
    ClockRestore() : wall(Time::fromEpoch()), mono(Time::fromMono()) {}
    ~ClockRestore() {
        timeval now = (wall + (Time::fromMono() - mono)).toTimeval();
        settimeofday(&now, nullptr);
    }

  private:
    Time wall, mono;
};

TEST(KernelClock, WritesAndReadsTheHardwareClock) {
    const DateTime cases[] = {
        {2030, 6, 15, 12, 34, 56},
        {2000, 2, 29, 0, 0, 0},      // a leap day, whatever isLeapYear() says of 2000
        {2069, 12, 31, 23, 59, 58},  // the last year two BCD digits can hold
        {1999, 1, 1, 8, 0, 0},
    };
    for (const DateTime& when : cases) {
        ASSERT_TRUE(DateTime::setRtcTime(when)) << when.toString();
        DateTime back = DateTime::getRtcTime();
        EXPECT_GE(secondsBetween(when, back), 0) << when.toString() << " read " << back.toString();
        EXPECT_LE(secondsBetween(when, back), 1) << when.toString() << " read " << back.toString();
        // hwclock reads the same device ("Sat Jun 15 12:34:56 2030  0.000000 seconds").
        tm fields{};
        fields.tm_year = when.year - 1900;
        fields.tm_mon = when.month - 1;
        fields.tm_mday = when.day;
        fields.tm_hour = when.hour;
        fields.tm_min = when.minute;
        char expected[64];
        strftime(expected, sizeof expected, "%b %e %H:%M", &fields);
        std::string shown = firstLine(test::toolOutput("hwclock -r -u -f /dev/rtc0 2>&1"));
        EXPECT_NE(shown.find(expected), std::string::npos) << shown << " for " << expected;
    }
}

TEST(KernelClock, RefusesDatesTheHardwareClockCannotHold) {
    const DateTime before = DateTime::getRtcTime();
    const DateTime cases[] = {
        {2030, 2, 30, 12, 0, 0},
        {2030, 13, 1, 12, 0, 0},
        {2030, 6, 15, 24, 0, 0},
        // Without a century register the CMOS clock holds 1970 to 2069.
        {2070, 1, 1, 0, 0, 0},
        {2099, 12, 31, 23, 59, 58},
    };
    for (const DateTime& when : cases) {
        test::expectRefusal([&] { return DateTime::setRtcTime(when); },
                            "<E>DATE [setRtcTime,L#] @DateTime, write rtc error:Invalid argument.");
    }
    EXPECT_LE(secondsBetween(before, DateTime::getRtcTime()), 2);
}

TEST(KernelClock, SetsTheSystemClock) {
    ClockRestore restore;
    const DateTime cases[] = {
        {2031, 1, 2, 3, 4, 5},
        {2024, 2, 29, 23, 59, 30},
    };
    for (const DateTime& when : cases) {
        ASSERT_TRUE(DateTime::setDateTime(when)) << when.toString();
        long off = secondsBetween(when, DateTime(Time::fromEpoch()));
        EXPECT_GE(off, 0) << when.toString();
        EXPECT_LE(off, 1) << when.toString();
        char expected[64];
        snprintf(expected, sizeof expected, "%04d-%02d-%02d %02d:%02d", when.year, when.month,
                 when.day, when.hour, when.minute);
        EXPECT_EQ(firstLine(test::toolOutput("date -u +'%Y-%m-%d %H:%M'")), expected);
    }
}

TEST(KernelClock, SetsTheClockWithTheKernelsZone) {
    ClockRestore restore;
    struct Case {
        int offsetSeconds;
        bool dst;
        int minutesWest;
        const char* tz;
    } cases[] = {
        {28800, false, 480, "UTC+8:00"},
        {-3600, true, -60, "UTC-1:00"},
        {0, false, 0, "UTC"},
    };
    const Time target(1900000000L, 0);  // 2030-03-17 17:46:40 UTC
    for (const Case& c : cases) {
        ASSERT_TRUE(DateTime::setDateTime(target, c.offsetSeconds, c.dst)) << c.tz;
        timeval now{};
        struct timezone zone {};
        ASSERT_EQ(gettimeofday(&now, &zone), 0);
        EXPECT_EQ(zone.tz_minuteswest, c.minutesWest) << c.tz;
        EXPECT_EQ(zone.tz_dsttime, c.dst ? 1 : 0) << c.tz;
        EXPECT_GE(now.tv_sec - target.sec(), 0) << c.tz;
        EXPECT_LE(now.tv_sec - target.sec(), 1) << c.tz;
        const char* tz = std::getenv("TZ");
        EXPECT_STREQ(tz == nullptr ? "" : tz, c.tz);
    }
    unsetenv("TZ");
    tzset();
}

TEST(KernelClock, SetsZoneAndClockThroughTheTimeDaemon) {
    if (std::system("command -v timedatectl > /dev/null 2>&1") != 0)
        GTEST_SKIP() << "the guest has no timedatectl (busybox only): the zone setter that "
                        "runs it cannot be tried here";
    ClockRestore restore;
    EXPECT_TRUE(DateTime::setDateTime(Time(1900000000L, 0), "Etc/UTC"));
}

}  // namespace
}  // namespace orvane
