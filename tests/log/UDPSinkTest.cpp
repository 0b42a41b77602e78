#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <orvane/Tracer.h>
#include <orvane/TracerSink.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "log/LogLine.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

// A UDP socket on 127.0.0.1 that collects what a UDPSink sends.
class Receiver {
  public:
    Receiver() : fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        socklen_t size = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
    }
    ~Receiver() { close(fd); }

    // The next datagram, or "<none>" when none arrives within timeoutMs.
    std::string next(int timeoutMs = 2000) {
        pollfd entry{fd, POLLIN, 0};
        if (poll(&entry, 1, timeoutMs) != 1) return "<none>";
        char buf[8192];
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        return n < 0 ? "<error>" : std::string(buf, static_cast<size_t>(n));
    }

    int fd;
    unsigned short port = 0;
};

const std::string kReset = "\033[0m";
const std::string kGreen = "\033[32m\033[1m";

TEST(UDPSink, SendsEachLineAsOneColouredDatagram) {
    auto& capture = test::LogCapture::get();
    Receiver receiver;
    UDPSink sink("127.0.0.1", receiver.port);
    EXPECT_EQ(capture.waitLine("UDP log on 127.0.0.1:" + std::to_string(receiver.port)),
              "<I>DATE [UDPSink::UDPSink] UDP log on 127.0.0.1:" + std::to_string(receiver.port));
    EXPECT_EQ(sink.sinkName(), "TracerSink");

    sink.sink(1, "<I>plain line");
    EXPECT_EQ(receiver.next(), "<I>plain line\n");
    sink.sink(0, "debug");
    EXPECT_EQ(receiver.next(), "\033[36m\033[1mdebug" + kReset + "\n");
    sink.sink(2, "warn");
    EXPECT_EQ(receiver.next(), "\033[33m\033[1mwarn" + kReset + "\n");
    sink.sink(3, "error");
    EXPECT_EQ(receiver.next(), "\033[31m\033[1merror" + kReset + "\n");
    sink.sink(4, "fatal");
    EXPECT_EQ(receiver.next(), "\033[43;31m\033[1mfatal" + kReset + "\n");

    // A cut line keeps its NUL byte before the reset sequence.
    std::string cut = std::string(4092, 'x') + "...";
    cut.push_back('\0');
    sink.sink(3, cut);
    EXPECT_EQ(receiver.next(), "\033[31m\033[1m" + cut + kReset + "\n");

    sink.sink(-1, "negative");
    EXPECT_EQ(receiver.next(50), "<none>");
}

TEST(UDPSink, SendsUserLevelsOnlyUpToItsOwnLevel) {
    Receiver receiver;
    UDPSink sink("127.0.0.1", receiver.port);
    sink.sink(5, "user five");
    sink.sink(0, "debug at own level 0");
    EXPECT_EQ(receiver.next(), "\033[36m\033[1mdebug at own level 0" + kReset + "\n");

    sink.onLevelChanged(7);
    EXPECT_EQ(sink.sinkLevel(), 7);
    for (int userLevel = 5; userLevel <= 8; ++userLevel) {
        sink.sink(userLevel, "user " + std::to_string(userLevel));
    }
    EXPECT_EQ(receiver.next(), kGreen + "user 5" + kReset + "\n");
    EXPECT_EQ(receiver.next(), kGreen + "user 6" + kReset + "\n");
    EXPECT_EQ(receiver.next(), kGreen + "user 7" + kReset + "\n");
    EXPECT_EQ(receiver.next(50), "<none>");  // 8, and the earlier 5, were dropped
}

// Runs in a fresh process: a Tracer with the UDP sink as its only output.
void traceThroughTracer() {
    Receiver receiver;
    Tracer& tracer = Tracer::getInstance();
    tracer.addSink(std::make_shared<UDPSink>("127.0.0.1", receiver.port));
    tracer.start();
    // The sink's own start-up lines come first: its socket's bind, then where it sends.
    bool ok = receiver.next().find("bind ok 0.0.0.0:") != std::string::npos &&
              receiver.next().find("UDP log on 127.0.0.1:") != std::string::npos;
    // setLevel(7) is not stored as the filter but reaches the sink.
    tracer.setLevel(7);
    tracer.print(6, "<L6>user six");
    tracer.print(8, "<L8>user eight");
    tracer.print(1, "<C>console text");
    struct {
        std::string className = "Probe";
        void fail() { ORVANE_ERROR("probe failed: %d", 3); }
    } probe;
    probe.fail();
    std::string six = receiver.next();
    std::string console = receiver.next();
    std::string error = receiver.next();
    ok = ok && tracer.getLevel() == 1 && six == kGreen + "<L6>user six" + kReset + "\n" &&
         console == "console text\n" && error.rfind("\033[31m\033[1m<E>", 0) == 0 &&
         error.find("[Probe::fail,L") != std::string::npos && receiver.next(50) == "<none>";
    if (!ok) fprintf(stderr, "got: [%s] [%s] [%s]\n", six.c_str(), console.c_str(), error.c_str());
    _exit(ok ? 0 : 1);
}

TEST(UDPSink, CarriesTheTracersLinesAndUserLevelsSetThroughIt) {
    EXPECT_EXIT(traceThroughTracer(), ::testing::ExitedWithCode(0), "");
}

// Runs in a fresh process: no descriptor is left for the sink's socket.
void sinkWithoutSocket() {
    auto& capture = test::LogCapture::get();
    // One sink that opens first, so that run-time type checks of sanitizer
    // builds have seen the socket's type before descriptors run out.
    { UDPSink warm("127.0.0.1", 9); }
    // Take every descriptor below a small limit.
    rlimit saved{};
    getrlimit(RLIMIT_NOFILE, &saved);
    rlimit tight = saved;
    tight.rlim_cur = 256;
    setrlimit(RLIMIT_NOFILE, &tight);
    std::vector<int> filler;
    for (int fd = dup(0); fd >= 0; fd = dup(0)) filler.push_back(fd);
    {
        UDPSink sink("127.0.0.1", 9);
        sink.sink(3, "goes nowhere");
        sink.sink(1, "goes nowhere");
    }
    for (int fd : filler) close(fd);
    setrlimit(RLIMIT_NOFILE, &saved);
    bool ok = capture.waitFor("open socket error:Too many open files") &&
              capture.matching("UDP log on").size() == 2 &&
              capture.waitLine("UDP log on") == "<I>DATE [UDPSink::UDPSink] UDP log on 127.0.0.1:9";
    _exit(ok ? 0 : 1);
}

TEST(UDPSink, StaysSilentWhenItsSocketCannotOpen) {
    EXPECT_EXIT(sinkWithoutSocket(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orvane
