#include <orvane/Time.h>
#include <sys/time.h>

#include <cstdlib>
#include <tuple>

#include "support/LogCapture.h"
#include "support/ToolRun.h"

// The hardware clock (rtc_cmos, /dev/rtc0) and the system clock of the
// virtual machine, read back through busybox's hwclock and date.
namespace orvane {
namespace {

// Whole seconds from `a` to `b`, both read as the same zone.
long secondsBetween(const DateTime& a, const DateTime& b) {
    return static_cast<long>(b.toEpochTime().sec() - a.toEpochTime().sec());
}

// The system clock, moved by a test, is put back where it would have been.
class KernelClock : public ::testing::Test {
  protected:
    ~KernelClock() override {
        timeval now = (wall + (Time::fromMono() - mono)).toTimeval();
        settimeofday(&now, nullptr);
        unsetenv("TZ");
        tzset();
    }
    Time wall = Time::fromEpoch(), mono = Time::fromMono();
};

TEST_F(KernelClock, WritesAndReadsTheHardwareClockAndRefusesWhatItCannotHold) {
    const DateTime cases[] = {
        {2000, 2, 29, 0, 0, 0},      // a leap day, whatever isLeapYear() says of 2000
        {2069, 12, 31, 23, 59, 58},  // the last year two BCD digits can hold
    };
    for (const DateTime& when : cases) {
        ASSERT_TRUE(DateTime::setRtcTime(when)) << when.toString();
        long off = secondsBetween(when, DateTime::getRtcTime());
        EXPECT_TRUE(off >= 0 && off <= 1) << when.toString() << ": " << off << " s off";
        // hwclock reads the same device ("Sat Jun 15 12:34:56 2030  0.000000 seconds").
        std::string read = test::toolOutput("hwclock -r -u -f /dev/rtc0 2>&1");
        std::string expected =
            test::toolOutput("date -u -d '" + when.toString() + "' +'%b %e %H:%M' | tr -d '\\n'");
        EXPECT_TRUE(!expected.empty() && read.find(expected) != std::string::npos)
            << read << " for " << expected;
    }
    const DateTime before = DateTime::getRtcTime();
    // Without a century register the CMOS clock holds 1970 to 2069.
    for (const DateTime& when : {DateTime(2030, 2, 30, 12, 0, 0), DateTime(2070, 1, 1, 0, 0, 0)}) {
        test::expectRefusal([&] { return DateTime::setRtcTime(when); },
                            "<E>DATE [setRtcTime,L#] @DateTime, write rtc error:Invalid argument.");
    }
    EXPECT_LE(secondsBetween(before, DateTime::getRtcTime()), 2);
}

TEST_F(KernelClock, SetsTheSystemClockAndTheKernelsZone) {
    const DateTime when(2024, 2, 29, 23, 59, 30);
    ASSERT_TRUE(DateTime::setDateTime(when));
    long off = secondsBetween(when, DateTime(Time::fromEpoch()));
    EXPECT_TRUE(off >= 0 && off <= 1) << off << " s off";
    EXPECT_EQ(test::toolOutput("date -u +'%Y-%m-%d %H:%M'"), when.toString().substr(0, 16) + "\n");

    const struct {
        int offsetSeconds;
        bool dst;
        const char* tz;
    } cases[] = {{28800, false, "UTC+8:00"}, {-3600, true, "UTC-1:00"}};
    const Time target(1900000000L, 0);  // 2030-03-17 17:46:40 UTC
    for (const auto& c : cases) {
        ASSERT_TRUE(DateTime::setDateTime(target, c.offsetSeconds, c.dst)) << c.tz;
        timeval now{};
        struct timezone zone {};
        ASSERT_EQ(gettimeofday(&now, &zone), 0);
        EXPECT_TRUE(now.tv_sec - target.sec() >= 0 && now.tv_sec - target.sec() <= 1) << c.tz;
        const char* tz = std::getenv("TZ");  // minutes west of UTC, whether DST applies, TZ
        EXPECT_EQ(std::make_tuple(zone.tz_minuteswest, zone.tz_dsttime, std::string(tz ? tz : "")),
                  std::make_tuple(c.offsetSeconds / 60, c.dst ? 1 : 0, std::string(c.tz)));
    }
}

}  // namespace
}  // namespace orvane
