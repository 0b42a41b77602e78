#include <orvane/Server.h>

#include "net/NetTestUtil.h"
#include "support/Descriptors.h"

namespace orvane {
namespace {

using nettest::readSome;

// Echoes one request. A client that asks to "keep" is moved out of the
// handler; every other one is left behind.
template <class Base>
class UpperServer : public Base {
  public:
    void newConnection(std::unique_ptr<TcpSocket>& client) override {
        char buf[256];
        int n = std::max(client->recvData(buf, sizeof buf, 500000), 0);
        if (client->writeData(buf, n) == 4 && std::string(buf, 4) == "keep")
            kept.push_back(std::move(client));
    }
    std::vector<std::unique_ptr<TcpSocket>> kept;  // read once the thread stopped
};

TEST(TcpServer, ServesOnAThreadClosesClientsItDoesNotKeepAndStops) {
    auto& capture = test::LogCapture::fresh();
    const std::vector<int> before = test::openFds();
    std::string path = test::tempPath("local_server");
    {
        UpperServer<TcpServer> server;
        UpperServer<LocalTcpServer> local;
        Thread thread("TcpServerTest"), localThread("LocalServer");
        // A second setup replaces (and closes) the first listening socket.
        ASSERT_TRUE(server.setup("127.0.0.1", 0, 8) && server.setup("127.0.0.1", 0, 8) &&
                    thread.start(server) && local.setup(path, 0, 4) && localThread.start(local));
        LocalTcpSocket localClient;
        ASSERT_TRUE(localClient.open("", 0) && localClient.setConnection(path, 0));
        EXPECT_EQ(localClient.writeData("local", 5), 5);
        // Closed as the handler returned.
        EXPECT_EQ(readSome(localClient.fd()), "local");
        EXPECT_EQ(readSome(localClient.fd()), "<eof>");
        TcpSocket keep;
        ASSERT_TRUE(keep.open("", 0) && keep.setConnection("127.0.0.1", server.localPort()));
        EXPECT_EQ(keep.writeData("keep", 4), 4);
        EXPECT_EQ(readSome(keep.fd()), "keep");

        EXPECT_TRUE(thread.stop(2000));
        EXPECT_EQ(capture.waitLine("tcp service quit"),
                  "<I>DATE [TcpServer::run] tcp service quit.");
        ASSERT_EQ(server.kept.size(), 1u);
        EXPECT_EQ(server.kept[0]->writeData("later", 5), 5);
        EXPECT_EQ(readSome(keep.fd()), "later");
    }
    EXPECT_EQ(test::fdsOpenedSince(before), std::vector<int>());
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

// quit() from another thread ends the loop, so the stop does not time out, and
// the same server serves again on a new thread; a stop request alone does not.
TEST(UdpServer, StopsThroughQuitOrItsHandlerAndStartsAgain) {
    EchoUdpServer server;
    ASSERT_TRUE(server.setup("127.0.0.1", 0));
    unsigned short port = 0;
    int a = nettest::bsdSocket(SOCK_DGRAM, &port);
    for (int round = 0; round < 2; ++round) {
        Thread thread("UdpServerTest");
        ASSERT_TRUE(thread.start(server));
        nettest::sendText(a, "ping", server.localPort());
        EXPECT_EQ(readSome(a), "ping") << round;
        if (round == 0) server.quit();
        EXPECT_EQ(thread.stop(round == 0 ? 1000 : 50), round == 0) << round;
        if (round == 1) nettest::sendText(a, "quit", server.localPort());
        EXPECT_TRUE(test::eventually([&] { return !thread.isRunning(); })) << round;
    }
    ::close(a);
}

}  // namespace
}  // namespace orvane
