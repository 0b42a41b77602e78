// Spans and points in time beyond what 32 bits carry: 2^31 microseconds is
// 35 min 47 s, 2^31 seconds ends in January 2038. A 32-bit build must give
// the same answers as a 64-bit one.
#include <gtest/gtest.h>
#include <orvane/Time.h>

namespace orvane {
namespace {

TEST(WideTime, SumsDifferencesConversionsTextAndDatesKeepEveryMicrosecond) {
    const std::pair<Time, const char*> cases[] = {
        {Time(3000L, 0L) - Time(0L, 0L), "3000.000000"},  // 3e9 us, past 2^31
        {Time(0L, 0L) - Time(3000L, 0L), "-3000.000000"},
        {Time(2100L, 600000L) + Time(2100L, 700000L), "4201.300000"},
        {Time(5000000000.25) - Time(1L, 0L), "4999999999.250000"},
        {Time::fromMicroSec(4294967296), "4294.967296"},  // 2^32 us
        {Time::fromMicroSec(5000000000001), "5000000.000001"},
        {Time(2147483648.0), "2147483648.000000"},
        {Time(-5000000000.0), "-5000000000.000000"}};
    for (const auto& [time, text] : cases) EXPECT_EQ(time.toString(), text);
    Time back = Time::fromMicroSec(-3000500000);
    EXPECT_TRUE(back.sec() * 1000000 + back.usec() == -3000500000 &&
                back.toMicroSec() == -3000500000);

    // Dates after 2038-01-19 03:14:07 UTC, converted both ways through the
    // local zone, whichever it is.
    const std::pair<const char*, int64_t> dates[] = {{"2038-01-19 03:14:08", 2147483648},
                                                     {"2106-02-07 06:28:16", 4294967296}};
    for (const auto& [utc, epoch] : dates) {
        DateTime local(Time(static_cast<double>(epoch)));
        EXPECT_EQ(local.toEpochTime().sec(), epoch) << local.toString();
        EXPECT_EQ(local.toUTC().toString(), utc);
    }
}

// What Delayer, EventNotifier::waitEvent, the timers and TraceDuration measure with.
TEST(WideTime, ElapsedMonotonicTimeIsRightPastHalfAnHour) {
    for (int64_t back : {int64_t{2148}, int64_t{200000}}) {
        int64_t elapsed = Time::usSinceMono(Time::fromMono() - Time(static_cast<long>(back), 0L));
        EXPECT_TRUE(elapsed >= back * 1000000 && elapsed < (back + 60) * 1000000) << elapsed;
    }
}

}  // namespace
}  // namespace orvane
