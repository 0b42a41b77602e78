#include <gtest/gtest.h>
#include <orvane/TracerSink.h>

namespace orvane {
namespace {

TEST(STDSink, WritesLevelsZeroToFourInTheirColoursAndDropsTheRest) {
    STDSink sink;
    testing::internal::CaptureStdout();
    for (int lineLevel : {0, 1, 2, 3, 4, 5, -1})
        sink.sink(lineLevel, "L" + std::to_string(lineLevel));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\033[36m\033[1mL0\033[0m\n"
              "L1\n"
              "\033[33m\033[1mL2\033[0m\n"
              "\033[31m\033[1mL3\033[0m\n"
              "\033[43;31m\033[1mL4\033[0m\n");
}

TEST(SyslogSink, PassesTheLineAsDataNeverAsAFormat) {
    SyslogSink sink;
    sink.sink(4, "orvane test line %s %n at the debug priority");  // must not crash
    sink.sink(5, "orvane test line never written");
}

}  // namespace
}  // namespace orvane
