#include <gtest/gtest.h>
#include <orvane/Server.h>

#include <cctype>

#include "net/NetTestUtil.h"
#include "support/Descriptors.h"
#include "support/Eventually.h"

namespace orvane {
namespace {

using nettest::readSome;

// Answers one request in upper case. A client that asks to "keep" is moved
// out of the handler; every other one is left behind.
template <class Base>
class UpperServer : public Base {
  public:
    void newConnection(std::unique_ptr<TcpSocket>& client) override {
        char buf[256];
        int n = client->recvData(buf, sizeof buf, 500000);
        std::string text(buf, static_cast<size_t>(n > 0 ? n : 0));
        for (char& c : text) c = static_cast<char>(toupper(c));
        if (n > 0) client->writeData(text.data(), n);
        if (text == "KEEP") kept.push_back(std::move(client));
    }
    std::vector<std::unique_ptr<TcpSocket>> kept;  // read once the thread stopped
};

TEST(TcpServer, ServesOnAThreadClosesClientsItDoesNotKeepAndStops) {
    auto& capture = test::LogCapture::fresh();
    const std::vector<int> before = test::openFds();
    {
        UpperServer<TcpServer> server;
        Thread thread("TcpServerTest");
        // A second setup replaces (and closes) the first listening socket.
        ASSERT_TRUE(server.setup("127.0.0.1", 0, 8) && server.setup("127.0.0.1", 0, 8) &&
                    thread.start(server));
        int client = nettest::bsdConnect(server.localPort());
        nettest::sendText(client, "hello");
        EXPECT_EQ(readSome(client), "HELLO");
        EXPECT_EQ(readSome(client), "<eof>");  // closed as the handler returned
        int keep = nettest::bsdConnect(server.localPort());
        nettest::sendText(keep, "keep");
        EXPECT_EQ(readSome(keep), "KEEP");

        EXPECT_TRUE(thread.stop(2000));
        EXPECT_EQ(capture.waitLine("tcp service quit"),
                  "<I>DATE [TcpServer::run] tcp service quit.");
        ASSERT_EQ(server.kept.size(), 1u);
        EXPECT_EQ(server.kept[0]->writeData("later", 5), 5);
        EXPECT_EQ(readSome(keep), "later");
        for (int fd : {client, keep}) ::close(fd);
    }
    EXPECT_EQ(test::fdsOpenedSince(before), std::vector<int>());
}

TEST(LocalTcpServer, AnswersALocalClientOverASocketFile) {
    std::string path = test::tempPath("local_server");
    UpperServer<LocalTcpServer> server;
    Thread thread("LocalServer");
    ASSERT_TRUE(server.setup(path, 0, 4) && thread.start(server));
    LocalTcpSocket client;
    ASSERT_TRUE(client.open("", 0) && client.setConnection(path, 0));
    EXPECT_EQ(client.writeData("local", 5), 5);
    EXPECT_EQ(readSome(client.fd()), "LOCAL");
    EXPECT_EQ(readSome(client.fd()), "<eof>");  // closed after the handler
    unlink(path.c_str());
}

// Echoes every datagram to its sender; "quit" ends the loop.
class EchoUdpServer : public UdpServer {
  public:
    bool dataReceived(UdpSocket& sender, const char* data, int len) override {
        return std::string(data, static_cast<size_t>(len)) != "quit" &&
               sender.writeData(data, len) == len;
    }
};

TEST(UdpServer, AnswersTheSenderAndStopsOnlyThroughItsHandler) {
    EchoUdpServer server;
    Thread thread("UdpServerTest");
    ASSERT_TRUE(server.setup("127.0.0.1", 0) && thread.start(server));
    unsigned short port = 0;
    int a = nettest::bsdSocket(SOCK_DGRAM, &port);
    nettest::sendText(a, "one", server.localPort());
    EXPECT_EQ(readSome(a), "one");
    EXPECT_FALSE(thread.stop(50));  // a stop request alone does not end the loop
    nettest::sendText(a, "quit", server.localPort());
    EXPECT_TRUE(test::eventually([&] { return !thread.isRunning(); }));
    ::close(a);
}

// quit() from another thread ends the loop, so the stop does not time out,
// and the same server serves again on a new thread.
TEST(UdpServer, QuitEndsTheLoopFromAnotherThreadAndTheServerStartsAgain) {
    EchoUdpServer server;
    ASSERT_TRUE(server.setup("127.0.0.1", 0));
    unsigned short port = 0;
    int a = nettest::bsdSocket(SOCK_DGRAM, &port);
    for (int round = 0; round < 2; ++round) {
        Thread thread("UdpServerQuit");
        ASSERT_TRUE(thread.start(server));
        nettest::sendText(a, "ping", server.localPort());
        EXPECT_EQ(readSome(a), "ping") << round;
        server.quit();
        EXPECT_TRUE(thread.stop(1000)) << round;
    }
    ::close(a);
}

}  // namespace
}  // namespace orvane
