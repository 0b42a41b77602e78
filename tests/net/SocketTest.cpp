#include <fcntl.h>
#include <linux/can.h>
#include <orvane/SocketCAN.h>

#include <chrono>
#include <csignal>
#include <cstring>

#include "net/NetTestUtil.h"
#include "support/ChildProcess.h"
#include "support/Descriptors.h"

namespace orvane {
namespace {

using nettest::readSome;

// A BSD peer answers, then reads nothing, then leaves while the buffers are full.
TEST(TcpSocket, ExchangesWithABsdPeerTimesOutSilentlyAndSurvivesThePeerLeaving) {
    auto& capture = test::LogCapture::fresh();
    unsigned short port = 0;
    int listener = nettest::bsdSocket(SOCK_STREAM, &port);
    TcpSocket client;
    ASSERT_TRUE(client.open("", 0) && client.setConnection("127.0.0.1", port));
    EXPECT_EQ(capture.waitLine("connect to"),
              "<I>DATE [TcpSocket::setConnection] connect to 127.0.0.1:" + std::to_string(port));
    int server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ::close(listener);
    char buf[16] = {};
    std::string chunk(65536, 'f');
    const int size = static_cast<int>(chunk.size());
    // Timeouts and EAGAIN give -2 or a short count without an error line.
    EXPECT_EQ(capture.linesDuring([&] {
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(client.peekData(buf, sizeof buf, 20000), -2);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
        nettest::sendText(server, "pong!");
        EXPECT_EQ(client.peekData(buf, 4, -1), 4);  // no limit; leaves the bytes queued
        EXPECT_EQ(client.recvData(buf, sizeof buf, 1000000) == 5 ? buf : "", std::string("pong!"));
        fcntl(client.fd(), F_SETFL, fcntl(client.fd(), F_GETFL) | O_NONBLOCK);
        EXPECT_EQ(client.readData(buf, sizeof buf), -1);
        int written = size;  // what fitted before EAGAIN
        for (int i = 0; i < 1000 && written == size; ++i)
            written = client.writeData(chunk.data(), size);
        EXPECT_TRUE(written >= 0 && written < size) << written;
    }),
              std::vector<std::string>{});

    signal(SIGPIPE, SIG_DFL);  // the default action would end the process
    ::close(server);
    auto lines = capture.linesDuring([&] {
        for (int i = 0, result = 0; i < 100 && result != -1; ++i)
            result = client.sendData(chunk.data(), size, 0);
        EXPECT_EQ(client.writeData(chunk.data(), 10), -1);
    });
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].rfind("<E>DATE [Socket::sendData,L#] sockfd(", 0), 0u) << lines[0];
    EXPECT_EQ(lines[1].rfind("<E>DATE [Socket::writeData,L#] write error:", 0), 0u) << lines[1];
}

// When the bind of open() fails, a TcpSocket (or UdpSocket, which shares the
// steps) leaves the socket it created open and owned by nobody; a
// LocalTcpSocket, or a SocketCAN without its interface, closes it. A failed
// connect leaves closing to the caller.
TEST(Socket, RejectsBadInputWithOneLineEach) {
    unsigned short taken = 0, refused = 0;
    int holder = nettest::bsdSocket(SOCK_STREAM, &taken);
    ::close(nettest::bsdSocket(SOCK_STREAM, &refused));
    TcpSocket closed, open, tcp;
    LocalTcpSocket local;
    UdpSocket udp;
    SocketCAN can;
    ASSERT_TRUE(open.open("", 0) && udp.open("127.0.0.1", 0));
    char buf[64] = {};
    auto before = test::openFds();
    nettest::expectOneLineEach({
        {[&] { return closed.recvData(buf, 8, 0); }, "[Socket::recvData,L#] socket not open."},
        {[&] { return can.recvData(buf, 15, 0); },
         "[SocketCAN::recvData,L#] param error,len:15,min:16."},
        {[&] { return can.recvData(buf, 64, 0); }, "[SocketCAN::recvData,L#] socket not open."},
        {[&] { return open.setConnection("127.0.0.1", refused) ? 0 : -1; },
         "[TcpSocket::setConnection,L#] connect error:Connection refused."},
        {[&] { return udp.getOption(SOCK_OPT_TYPE); },
         "[Socket::getOption,L#] Unsupport socket option:0"},
        {[&] { return udp.writeData("x", 1); },
         "[UdpSocket::writeData,L#] peer not set, peerAddr:, peerPort:0."},
        {[&] { return udp.writeTrace("x", 1); }, ""},  // a log sink's path stays silent
        {[&] { return tcp.open("127.0.0.1", taken) ? 0 : -1; },
         "[Socket::bindPort,L#] bind(127.0.0.1:" + std::to_string(taken) +
             ") error:Address already in use."},
        {[&] { return local.open("/nonexistent-orvane-dir/s.sock", 0) ? 0 : -1; },
         "[LocalTcpSocket::open,L#] bind error:No such file or directory."},
    });
    EXPECT_TRUE(open.isOpen() && !tcp.isOpen() && !local.isOpen());
    auto left = test::fdsOpenedSince(before);
    EXPECT_EQ(left.size(), 1u);  // the TcpSocket's
    for (int fd : left) ::close(fd);
    ::close(holder);
}

// Replies go to the sender of the datagram received last.
TEST(UdpSocket, AnswersTheLastSender) {
    UdpSocket server;
    ASSERT_TRUE(server.open("127.0.0.1", 0));
    unsigned short port = 0;
    int a = nettest::bsdSocket(SOCK_DGRAM, &port), b = nettest::bsdSocket(SOCK_DGRAM, &port);
    char buf[32] = {};
    nettest::sendText(a, "from a", server.localPort());
    EXPECT_TRUE(server.readData(buf, sizeof buf) == 6 && server.writeData("to a", 4) == 4);
    nettest::sendText(b, "from b", server.localPort());
    EXPECT_TRUE(server.recvData(buf, sizeof buf, 1000000) == 6 &&
                server.sendData("to b", 4, 1000000) == 4);
    EXPECT_EQ(readSome(a), "to a");
    EXPECT_EQ(readSome(a, 100) + "|" + readSome(b), "|to b");  // nothing else went to a
    ::close(a), ::close(b);
}

// Unlike IODevice and Poller, a socket holds descriptor 0 as its own: close()
// closes it, and fdopen() over it replaces (and closes) it; 0 is never adopted.
TEST(SocketDescriptors, ClosesDescriptorZeroLikeAnyOther) {
    EXPECT_TRUE(test::succeedsInChild([] {
        ::close(0);
        UdpSocket udp;
        bool ok = udp.open("127.0.0.1", 0) && udp.fd() == 0 && udp.close() && !test::isOpenFd(0) &&
                  !TcpSocket().fdopen(0) && udp.open("127.0.0.1", 0) && udp.fd() == 0;
        int other = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        return ok && udp.fdopen(other) && udp.fd() == other && !test::isOpenFd(0);
    }));
}

TEST(CANFrame, KeepsTheKernelLayoutAndItsIdentifierRules) {
    char data[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    const can_frame expected{0x123, {3}, 0, 0, 0, {1, 2, 3}};
    CANFrame frame(0x123, data, 3);
    EXPECT_EQ(memcmp(&expected, &frame, sizeof frame), 0);  // byte for byte, padding zeroed
    // Out-of-range or missing data leaves the frame without data bytes.
    EXPECT_EQ(CANFrame(0x123, data, 9).dataLen() + CANFrame(0x123, nullptr, 4).dataLen(), 0);
    // Extended format sets bit 31, yet id() keeps 11 bits.
    EXPECT_EQ(CANFrame(0x1ABCDE, data, 8, 1).id(), 0x4DEu);
    EXPECT_EQ(CANFrame(0x1ABCDE, data, 8, 2).canid(), 0x1ABCDEu);
}

}  // namespace
}  // namespace orvane
