#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/TracerSink.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace orvane {
namespace {

// Everything written to standard output while `write` runs.
template <class Fn>
std::string capturedStdout(Fn write) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return "pipe failed";
    fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    dup2(fds[1], STDOUT_FILENO);
    close(fds[1]);
    write();
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string out;
    char buffer[256];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) > 0) out.append(buffer, size_t(n));
    close(fds[0]);
    return out;
}

TEST(STDSink, WritesLevelsZeroToFourInTheirColoursAndDropsTheRest) {
    STDSink sink;
    EXPECT_EQ(sink.sinkName(), "TracerSink");
    std::string out = capturedStdout([&] {
        sink.sink(0, "debug");
        sink.sink(1, "plain");
        sink.sink(2, "warn");
        sink.sink(3, "error");
        sink.sink(4, "fatal");
        sink.sink(5, "user level");
        sink.sink(-1, "negative");
    });
    EXPECT_EQ(out,
              "\033[36m\033[1mdebug\033[0m\n"
              "plain\n"
              "\033[33m\033[1mwarn\033[0m\n"
              "\033[31m\033[1merror\033[0m\n"
              "\033[43;31m\033[1mfatal\033[0m\n");
    // The console sink keeps the base's level handling: it stays 0.
    sink.onLevelChanged(3);
    sink.onFlushed();
    EXPECT_EQ(sink.sinkLevel(), 0);
}

TEST(SyslogSink, WritesOneLineAndDropsLevelsOutsideZeroToFour) {
    SyslogSink sink;
    EXPECT_EQ(sink.sinkName(), "TracerSink");
    // Lines are passed as data, never as a format: "%s %n" must not crash.
    sink.sink(4, "orvane test line %s %n at the debug priority");
    sink.sink(5, "orvane test line never written");
    sink.sink(-1, "orvane test line never written");
    sink.onLevelChanged(2);
    EXPECT_EQ(sink.sinkLevel(), 0);
}

}  // namespace
}  // namespace orvane
