#include "net/NetTestUtil.h"

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

TEST(UDPSink, SendsEachLineAsOneColouredDatagramAndGatesUserLevels) {
    auto& capture = nettest::freshCapture();
    unsigned short port = 0;
    int receiver = nettest::bsdSocket(SOCK_DGRAM, &port);
    UDPSink sink("127.0.0.1", port);
    EXPECT_EQ(capture.waitLine("UDP log on"),
              "<I>DATE [UDPSink::UDPSink] UDP log on 127.0.0.1:" + std::to_string(port));
    const std::string reset = "\033[0m\n", green = "\033[32m\033[1m";
    // A cut line keeps its NUL byte before the reset sequence.
    std::string cut = std::string(4092, 'x') + "..." + '\0';
    sink.sink(1, "<I>plain line");
    sink.sink(-1, "negative");
    sink.sink(5, "user 5");  // above the starting level 0
    sink.sink(4, cut);
    EXPECT_EQ(nettest::readSome(receiver), "<I>plain line\n");
    EXPECT_EQ(nettest::readSome(receiver), "\033[43;31m\033[1m" + cut + reset);

    sink.onLevelChanged(7);
    for (int level = 5; level <= 8; ++level) sink.sink(level, "user " + std::to_string(level));
    for (int level = 5; level <= 7; ++level)
        EXPECT_EQ(nettest::readSome(receiver), green + "user " + std::to_string(level) + reset);
    EXPECT_EQ(nettest::readSome(receiver, 50), "");
    ::close(receiver);
}

}  // namespace
}  // namespace orvane
