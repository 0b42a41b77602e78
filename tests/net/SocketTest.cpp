#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Socket.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "net/NetTestUtil.h"

namespace orvane {
namespace {

using nettest::freshCapture;

TEST(TcpSocket, ConnectsToABsdPeerAndExchangesARequestAndAnswer) {
    auto& capture = freshCapture();
    unsigned short port = 0;
    int listener = nettest::bsdSocket(SOCK_STREAM, &port);

    TcpSocket client;
    ASSERT_TRUE(client.open("127.0.0.1", 0));
    unsigned short local = client.localPort();
    EXPECT_NE(local, 0);
    EXPECT_EQ(capture.waitLine("bind ok"),
              "<I>DATE [Socket::bindPort] bind ok 127.0.0.1:" + std::to_string(local));
    ASSERT_TRUE(client.setConnection("127.0.0.1", port));
    EXPECT_EQ(capture.waitLine("connect to"),
              "<I>DATE [TcpSocket::setConnection] connect to 127.0.0.1:" + std::to_string(port));
    std::string peer;
    unsigned short peerPort = 0;
    EXPECT_TRUE(client.getConnection(&peer, &peerPort));
    EXPECT_EQ(peer, "127.0.0.1");
    EXPECT_EQ(peerPort, port);

    int server = accept(listener, nullptr, nullptr);
    ASSERT_GE(server, 0);
    EXPECT_EQ(client.sendData("ping", 4, 1000000), 4);
    EXPECT_EQ(nettest::readSome(server), "ping");
    nettest::sendText(server, "pong!");

    char buf[16] = {};
    EXPECT_EQ(client.peekData(buf, 4, 1000000), 4);
    EXPECT_EQ(std::string(buf, 4), "pong");
    EXPECT_EQ(client.recvData(buf, sizeof buf, 1000000), 5);
    EXPECT_EQ(std::string(buf, 5), "pong!");
    EXPECT_EQ(client.writeData("bye", 3), 3);
    EXPECT_EQ(nettest::readSome(server), "bye");
    ::close(server);
    EXPECT_EQ(client.readData(buf, sizeof buf), 0);  // end of stream
    ::close(listener);
}

TEST(TcpSocket, ListensAndHandsAcceptedConnectionsToClients) {
    auto& capture = freshCapture();
    TcpSocket listener;
    ASSERT_TRUE(listener.open("127.0.0.1", 0));
    ASSERT_TRUE(listener.listenConnection(4));
    int peer = nettest::bsdConnect(listener.localPort());
    ASSERT_GE(peer, 0);

    TcpSocket client;
    ASSERT_TRUE(listener.acceptConnection(&client));
    ASSERT_TRUE(client.isOpen());
    std::string line = capture.waitLine("tcp connection from");
    EXPECT_EQ(line, "<I>DATE [TcpSocket::acceptConnection] tcp connection from 127.0.0.1:" +
                        std::to_string(nettest::boundPort(peer)));
    nettest::sendText(peer, "hello");
    char buf[8] = {};
    EXPECT_EQ(client.recvData(buf, sizeof buf, 1000000), 5);

    // A client that is already open keeps its descriptor; the new one is closed.
    int second = nettest::bsdConnect(listener.localPort());
    int before = test::openFdCount();
    int kept = client.fd();
    EXPECT_TRUE(listener.acceptConnection(&client));
    EXPECT_EQ(client.fd(), kept);
    EXPECT_EQ(test::openFdCount(), before);
    EXPECT_TRUE(nettest::closedByPeer(second));
    ::close(second);
    ::close(peer);
}

TEST(TcpSocket, WaitsForDataOnlyAsLongAsTold) {
    TcpSocket client;
    int server = nettest::connectPair(client);
    ASSERT_GE(server, 0);
    char buf[8];

    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.recvData(buf, sizeof buf, 0), -2);
    EXPECT_EQ(client.peekData(buf, sizeof buf, 0), -2);
    EXPECT_EQ(client.recvData(buf, sizeof buf, 20000), -2);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));

    // A negative timeout waits until data comes.
    std::thread late([server] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        nettest::sendText(server, "late");
    });
    EXPECT_EQ(client.recvData(buf, sizeof buf, -1), 4);
    late.join();
    ::close(server);
}

TEST(TcpSocket, TimesOutOnAFullSendBufferAndNeverLogsEagain) {
    auto& capture = freshCapture();
    TcpSocket client;
    int server = nettest::connectPair(client);
    ASSERT_GE(server, 0);
    fcntl(client.fd(), F_SETFL, fcntl(client.fd(), F_GETFL) | O_NONBLOCK);
    char buf[8];
    EXPECT_EQ(client.readData(buf, sizeof buf), -1);  // EAGAIN

    // The peer reads nothing: sends succeed until the buffers fill, then the
    // wait runs out.
    std::string chunk(65536, 'f');
    int result = 0;
    for (int i = 0; i < 1000 && result >= 0; ++i) {
        result = client.sendData(chunk.data(), static_cast<int>(chunk.size()), 0);
    }
    EXPECT_EQ(result, -2);
    // writeData returns what fitted before EAGAIN.
    int size = static_cast<int>(chunk.size());
    int written = size;
    for (int i = 0; i < 1000 && written == size; ++i)
        written = client.writeData(chunk.data(), size);
    EXPECT_GE(written, 0);
    EXPECT_LT(written, size);
    nettest::freshCapture();  // flushes what was logged so far
    EXPECT_TRUE(capture.matching("error").empty());
    ::close(server);
}

TEST(TcpSocket, ReportsRefusedConnectionsAndMissingPeers) {
    auto& capture = freshCapture();
    int before = test::openFdCount();
    {
        TcpSocket client;
        ASSERT_TRUE(client.open("", 0));
        EXPECT_FALSE(client.setConnection("127.0.0.1", nettest::freePort()));
        EXPECT_EQ(capture.waitLine("connect error"),
                  "<E>DATE [TcpSocket::setConnection,L#] connect error:Connection refused.");
        capture.clear();
        EXPECT_FALSE(client.setConnection("no.such.peer", 80));  // not a dotted address
        EXPECT_TRUE(capture.waitFor("[TcpSocket::setConnection,L"));
        EXPECT_EQ(capture.matching("connect error:").size(), 1u);
        EXPECT_FALSE(client.setConnection("", 80));
        EXPECT_EQ(capture.waitLine("peer ip addr"),
                  "<E>DATE [TcpSocket::setConnection,L#] peer ip addr not set");
        EXPECT_TRUE(client.isOpen());  // the caller decides to close
    }
    EXPECT_EQ(test::openFdCount(), before);
}

TEST(TcpSocket, FailsToBindAPortInUseWithoutLeakingDescriptors) {
    auto& capture = freshCapture();
    unsigned short port = 0;
    int taken = nettest::bsdSocket(SOCK_STREAM, &port);
    int before = test::openFdCount();
    {
        TcpSocket tcp;
        EXPECT_FALSE(tcp.open("127.0.0.1", port));
        EXPECT_FALSE(tcp.isOpen());
        EXPECT_EQ(capture.waitLine("bind("),
                  "<E>DATE [Socket::bindPort,L#] bind(127.0.0.1:" + std::to_string(port) +
                      ") error:Address already in use.");
        EXPECT_FALSE(tcp.bindPort(-1, port, ""));
        EXPECT_EQ(capture.waitLine("socket is not open"),
                  "<E>DATE [Socket::bindPort,L#] socket is not open");
        TcpSocket wrong;
        EXPECT_FALSE(wrong.open("192.0.2.1", 0));  // not an address of this host
        EXPECT_TRUE(capture.waitFor("error:Cannot assign requested address."));
        EXPECT_FALSE(wrong.listenConnection(4));
        EXPECT_EQ(capture.waitLine("listen error"),
                  "<E>DATE [TcpSocket::listenConnection,L#] listen error:Bad file descriptor.");
    }
    EXPECT_EQ(test::openFdCount(), before);
    ::close(taken);
}

TEST(Socket, RejectsBadBuffersAndClosedSocketsWithOneLineEach) {
    auto& capture = freshCapture();
    int before = test::openFdCount();
    TcpSocket tcp;
    char buf[8] = {};
    EXPECT_EQ(tcp.readData(nullptr, 8), -1);
    EXPECT_EQ(capture.waitLine("param error"), "<E>DATE [Socket::readData,L#] param error.");
    EXPECT_EQ(tcp.writeData(buf, -1), -1);
    EXPECT_EQ(tcp.sendData(buf, 0, 0), -1);
    EXPECT_EQ(tcp.peekData(buf, -5, 0), -1);
    EXPECT_EQ(tcp.recvData(nullptr, 8, 0), -1);
    EXPECT_TRUE(capture.waitFor("param error.", 3000, 5));
    EXPECT_EQ(capture.matching("[Socket::peekData").size(), 1u);

    EXPECT_EQ(tcp.readData(buf, 8), -1);
    EXPECT_EQ(capture.waitLine("socket not open"),
              "<E>DATE [Socket::readData,L#] socket not open.");
    EXPECT_EQ(tcp.writeData("x", 1), -1);
    EXPECT_EQ(tcp.recvData(buf, 8, 0), -1);
    EXPECT_EQ(tcp.peekData(buf, 8, 0), -1);
    EXPECT_EQ(tcp.sendData("x", 1, 0), -1);
    EXPECT_TRUE(capture.waitFor("socket not open.", 3000, 5));
    EXPECT_EQ(tcp.setOption(SOCK_OPT_RCVBUF, 4096), -1);
    EXPECT_EQ(capture.waitLine("setsockopt"),
              "<E>DATE [Socket::setOption,L#] setsockopt error:Bad file descriptor");
    EXPECT_EQ(tcp.getOption(SOCK_OPT_SNDBUF), -1);
    EXPECT_TRUE(capture.waitFor("getsockopt error:Bad file descriptor"));
    EXPECT_FALSE(tcp.acceptConnection(nullptr));
    EXPECT_EQ(capture.waitLine("[TcpSocket::acceptConnection"),
              "<E>DATE [TcpSocket::acceptConnection,L#] param error.");

    // Close is idempotent; fdopen adopts only into a closed socket.
    EXPECT_TRUE(tcp.close());
    EXPECT_TRUE(tcp.close());
    EXPECT_FALSE(tcp.fdopen(-1));
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_TRUE(tcp.fdopen(fd));
    EXPECT_FALSE(tcp.fdopen(fd));
    EXPECT_EQ(tcp.fd(), fd);
    EXPECT_TRUE(tcp.close());
    EXPECT_EQ(test::openFdCount(), before);
}

TEST(Socket, SupportsBufferSizesAndBroadcastOnlyAmongOptions) {
    auto& capture = freshCapture();
    UdpSocket udp;
    ASSERT_TRUE(udp.open("127.0.0.1", 0));
    EXPECT_EQ(udp.setOption(4, 1), -1);
    EXPECT_EQ(capture.waitLine("Unsupport socket option"),
              "<E>DATE [Socket::setOption,L#] Unsupport socket option:4");
    EXPECT_EQ(udp.setOption(SOCK_OPT_TYPE, 3), -1);
    EXPECT_EQ(capture.waitLine("Unsupport socket type"),
              "<E>DATE [Socket::setOption,L#] Unsupport socket type:3");
    EXPECT_EQ(udp.getOption(SOCK_OPT_TYPE), -1);
    EXPECT_EQ(udp.getOption(SOCK_OPT_REUSEADDR), -1);
    EXPECT_EQ(udp.getOption(-7), -1);
    EXPECT_TRUE(capture.waitFor("[Socket::getOption,L", 3000, 3));
    EXPECT_EQ(capture.matching("Unsupport socket option:0").size(), 1u);
    EXPECT_EQ(capture.matching("Unsupport socket option:-7").size(), 1u);

    int broadcast = 0;
    socklen_t size = sizeof broadcast;
    EXPECT_EQ(udp.setOption(SOCK_OPT_TYPE, 1), 0);
    EXPECT_EQ(udp.setOption(SOCK_OPT_TYPE, 2), 0);
    getsockopt(udp.fd(), SOL_SOCKET, SO_BROADCAST, &broadcast, &size);
    EXPECT_EQ(broadcast, 0);
    EXPECT_EQ(udp.setOption(SOCK_OPT_TYPE, 0), 0);
    getsockopt(udp.fd(), SOL_SOCKET, SO_BROADCAST, &broadcast, &size);
    EXPECT_EQ(broadcast, 1);
    EXPECT_EQ(udp.setOption(SOCK_OPT_RCVBUF, 65536), 0);
    EXPECT_GE(udp.getOption(SOCK_OPT_RCVBUF), 65536);  // the kernel doubles it
    EXPECT_EQ(udp.setOption(SOCK_OPT_SNDBUF, 32768), 0);
    EXPECT_GE(udp.getOption(SOCK_OPT_SNDBUF), 32768);
    EXPECT_EQ(udp.setOption(SOCK_OPT_REUSEADDR, 1), 0);
}

TEST(TcpSocket, SurvivesAPeerThatDisconnectsMidStream) {
    auto& capture = freshCapture();
    // The default action would end the process; every send must ignore it.
    signal(SIGPIPE, SIG_DFL);
    TcpSocket client;
    int server = nettest::connectPair(client);
    ASSERT_GE(server, 0);
    ::close(server);

    std::string chunk(4096, 'x');
    int result = 0;
    for (int i = 0; i < 100 && result >= 0; ++i) {
        result = client.sendData(chunk.data(), static_cast<int>(chunk.size()), 1000000);
    }
    EXPECT_EQ(result, -1);
    std::string line = capture.waitLine("write error");
    EXPECT_EQ(line.rfind("<E>DATE [Socket::sendData,L#] sockfd(", 0), 0u) << line;
    EXPECT_EQ(client.writeData(chunk.data(), 10), -1);
    EXPECT_EQ(capture.waitLine("[Socket::writeData")
                  .rfind("<E>DATE [Socket::writeData,L#] write error:", 0),
              0u);
    EXPECT_TRUE(client.isOpen());
    EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

TEST(UdpSocket, AnswersTheLastSender) {
    auto& capture = freshCapture();
    UdpSocket server;
    ASSERT_TRUE(server.open("127.0.0.1", 0));
    EXPECT_EQ(server.writeData("early", 5), -1);
    EXPECT_EQ(capture.waitLine("peer not set"),
              "<E>DATE [UdpSocket::writeData,L#] peer not set, peerAddr:, peerPort:0.");
    EXPECT_EQ(server.sendData("early", 5, 0), -1);
    EXPECT_TRUE(capture.waitFor("[UdpSocket::sendData,L"));
    EXPECT_EQ(server.writeTrace("early", 5), -1);

    unsigned short portA = 0, portB = 0;
    int a = nettest::bsdSocket(SOCK_DGRAM, &portA);
    int b = nettest::bsdSocket(SOCK_DGRAM, &portB);
    sockaddr_in to = nettest::loopback(server.localPort());
    sendto(a, "from a", 6, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    char buf[32] = {};
    EXPECT_EQ(server.readData(buf, sizeof buf), 6);
    std::string addr;
    unsigned short port = 0;
    server.getConnection(&addr, &port);
    EXPECT_EQ(addr, "127.0.0.1");
    EXPECT_EQ(port, portA);
    EXPECT_EQ(server.writeData("to a", 4), 4);
    EXPECT_EQ(nettest::readSome(a), "to a");

    sendto(b, "from b", 6, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
    EXPECT_EQ(server.recvData(buf, sizeof buf, 1000000), 6);
    EXPECT_EQ(std::string(buf, 6), "from b");
    EXPECT_EQ(server.sendData("to b", 4, 1000000), 4);
    EXPECT_EQ(server.writeTrace("trace b", 7), 7);
    EXPECT_EQ(nettest::readSome(b), "to b");
    EXPECT_EQ(nettest::readSome(b), "trace b");
    EXPECT_EQ(nettest::readSome(a, 20), "");
    EXPECT_EQ(server.recvData(buf, sizeof buf, 0), -2);

    // An explicit peer replaces the recorded one; an empty address keeps it.
    EXPECT_TRUE(server.setConnection("", portA));
    EXPECT_EQ(server.writeData("to a again", 10), 10);
    EXPECT_EQ(nettest::readSome(a), "to a again");
    EXPECT_EQ(server.writeTrace(nullptr, 3), -1);
    EXPECT_EQ(server.writeTrace("x", 0), -1);
    freshCapture();
    EXPECT_EQ(server.writeData(nullptr, 3), -1);
    EXPECT_EQ(capture.waitLine("param error"), "<E>DATE [UdpSocket::writeData,L#] param error.");
    server.close();
    EXPECT_EQ(server.readData(buf, sizeof buf), -1);
    EXPECT_EQ(capture.waitLine("[UdpSocket::readData"),
              "<E>DATE [UdpSocket::readData,L#] socket not open.");
    ::close(a);
    ::close(b);
}

TEST(LocalTcpSocket, ConnectsOverASocketFile) {
    auto& capture = freshCapture();
    std::string path = test::tempPath("local_sock");
    int before = test::openFdCount();
    {
        LocalTcpSocket listener;
        ASSERT_TRUE(listener.open(path, 0));
        ASSERT_TRUE(listener.listenConnection(4));
        LocalTcpSocket client;
        ASSERT_TRUE(client.open("", 0));
        ASSERT_TRUE(client.setConnection(path, 0));
        EXPECT_EQ(capture.waitLine("connect to"),
                  "<I>DATE [LocalTcpSocket::setConnection] connect to " + path);
        EXPECT_EQ(capture.waitLine("Local Socket"),
                  "<I>DATE [LocalTcpSocket::setConnection] Local Socket connect success.");
        LocalTcpSocket served;
        ASSERT_TRUE(listener.acceptConnection(&served));
        EXPECT_EQ(client.writeData("over unix", 9), 9);
        char buf[16] = {};
        EXPECT_EQ(served.recvData(buf, sizeof buf, 1000000), 9);
        EXPECT_EQ(std::string(buf, 9), "over unix");

        // A second open on the same path replaces the stale file.
        LocalTcpSocket again;
        EXPECT_TRUE(again.open(path, 0));

        LocalTcpSocket orphan;
        ASSERT_TRUE(orphan.open("", 0));
        EXPECT_FALSE(orphan.setConnection(path + ".missing", 0));
        EXPECT_EQ(capture.waitLine("connect error"),
                  "<E>DATE [LocalTcpSocket::setConnection,L#] connect error:No such file or "
                  "directory.");
        LocalTcpSocket tooLong;
        EXPECT_FALSE(tooLong.open("/tmp/" + std::string(200, 'p'), 0));
        EXPECT_EQ(capture.waitLine("bind error"),
                  "<E>DATE [LocalTcpSocket::open,L#] bind error:File name too long.");
    }
    unlink(path.c_str());
    EXPECT_EQ(test::openFdCount(), before);
}

}  // namespace
}  // namespace orvane
