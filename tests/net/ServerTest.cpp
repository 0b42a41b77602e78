#include <gtest/gtest.h>
#include <orvane/Server.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <thread>
#include <vector>

#include "net/NetTestUtil.h"

namespace orvane {
namespace {

using nettest::freshCapture;

// Reads one request (waiting at most 500 ms) and answers it in upper case;
// a client that sends nothing or hangs up gets no answer.
void answerUpperCase(TcpSocket& client) {
    char buf[256];
    int n = client.recvData(buf, sizeof buf, 500000);
    if (n < 1) return;
    std::transform(buf, buf + n, buf, [](char c) { return static_cast<char>(toupper(c)); });
    client.writeData(buf, n);
}

// Answers each client on the server's thread and leaves it to be closed.
class UpperServer : public TcpServer {
  public:
    void newConnection(std::unique_ptr<TcpSocket>& client) override {
        answerUpperCase(*client);
        ++served;
    }
    std::atomic<int> served{0};
};

// Takes every client over and answers it later on a thread of its own.
class HandOffServer : public TcpServer {
  public:
    ~HandOffServer() override {
        for (auto& worker : workers) worker.join();
    }
    void newConnection(std::unique_ptr<TcpSocket>& client) override {
        std::shared_ptr<TcpSocket> taken(std::move(client));
        workers.emplace_back([taken] { answerUpperCase(*taken); });
    }
    std::vector<std::thread> workers;
};

TEST(TcpServer, AnswersAndClosesClientsThatTheHandlerDoesNotKeep) {
    auto& capture = freshCapture();
    int before = test::openFdCount();
    {
        UpperServer server;
        ASSERT_TRUE(server.setup("127.0.0.1", 0, 8));
        Thread thread("TcpServerTest");
        ASSERT_TRUE(thread.start(server));

        int client = nettest::bsdConnect(server.localPort());
        ASSERT_GE(client, 0);
        nettest::sendText(client, "hello");
        EXPECT_EQ(nettest::readSome(client), "HELLO");
        EXPECT_TRUE(nettest::closedByPeer(client));  // closed as the handler returned
        ::close(client);
        EXPECT_EQ(capture.waitLine("new tcp client"),
                  "<I>DATE [TcpServer::run] new tcp client connected.");

        // A client that sends nothing, and one that hangs up before its
        // request: each costs the server one short wait, and it goes on.
        int silent = nettest::bsdConnect(server.localPort());
        int quitter = nettest::bsdConnect(server.localPort());
        ::close(quitter);
        EXPECT_TRUE(nettest::closedByPeer(silent));
        ::close(silent);
        int next = nettest::bsdConnect(server.localPort());
        nettest::sendText(next, "still there");
        EXPECT_EQ(nettest::readSome(next), "STILL THERE");
        ::close(next);

        EXPECT_TRUE(thread.stop(2000));
        EXPECT_EQ(capture.waitLine("tcp service quit"),
                  "<I>DATE [TcpServer::run] tcp service quit.");
        EXPECT_EQ(server.served.load(), 4);
    }
    EXPECT_EQ(test::openFdCount(), before);
}

TEST(TcpServer, KeepsClientsThatTheHandlerTakesOver) {
    int before = test::openFdCount();
    {
        HandOffServer server;
        ASSERT_TRUE(server.setup("", 0, 8));
        Thread thread("HandOffTest");
        ASSERT_TRUE(thread.start(server));
        int first = nettest::bsdConnect(server.localPort());
        int second = nettest::bsdConnect(server.localPort());
        // Both are accepted before either has spoken: the handler kept them open.
        nettest::sendText(second, "second");
        nettest::sendText(first, "first");
        EXPECT_EQ(nettest::readSome(second), "SECOND");
        EXPECT_EQ(nettest::readSome(first), "FIRST");
        server.quit();
        EXPECT_TRUE(thread.stop(2000));
        ::close(first);
        ::close(second);
    }
    EXPECT_EQ(test::openFdCount(), before);
}

TEST(TcpServer, AnswersAnExternalSocatClient) {
    if (system("command -v socat > /dev/null 2>&1") != 0) {
        GTEST_SKIP() << "socat is not installed";
    }
    UpperServer server;
    ASSERT_TRUE(server.setup("127.0.0.1", 0, 8));
    Thread thread("SocatTest");
    ASSERT_TRUE(thread.start(server));
    std::string command =
        "printf 'from socat' | socat -t 2 - TCP:127.0.0.1:" + std::to_string(server.localPort());
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char answer[64] = {};
    size_t n = fread(answer, 1, sizeof answer - 1, pipe);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_EQ(std::string(answer, n), "FROM SOCAT");
    EXPECT_TRUE(thread.stop(2000));
}

TEST(TcpServer, ReplacesItsListeningSocketAndReportsBindFailures) {
    auto& capture = freshCapture();
    int before = test::openFdCount();
    {
        UpperServer server;
        ASSERT_TRUE(server.setup("127.0.0.1", 0, 8));
        unsigned short first = server.localPort();
        ASSERT_TRUE(server.setup("127.0.0.1", 0, 8));
        EXPECT_NE(server.localPort(), first);
        EXPECT_LT(nettest::bsdConnect(first), 0);  // the old socket is closed

        unsigned short port = 0;
        int taken = nettest::bsdSocket(SOCK_STREAM, &port);
        UpperServer blocked;
        EXPECT_FALSE(blocked.setup("127.0.0.1", port, 8));
        EXPECT_TRUE(capture.waitFor("error:Address already in use."));
        ::close(taken);

        // A server that was never set up idles until it is stopped.
        Thread thread("IdleServer");
        ASSERT_TRUE(thread.start(blocked));
        EXPECT_EQ(capture.waitLine("[TcpServer::run,"),
                  "<E>DATE [TcpServer::run,L#] socket not open.");
        EXPECT_TRUE(thread.stop(2000));
    }
    EXPECT_EQ(test::openFdCount(), before);
}

class LocalUpperServer : public LocalTcpServer {
  public:
    void newConnection(std::unique_ptr<TcpSocket>& client) override { answerUpperCase(*client); }
};

TEST(LocalTcpServer, AnswersLocalClientsAndStops) {
    auto& capture = freshCapture();
    std::string path = test::tempPath("local_server");
    int before = test::openFdCount();
    {
        LocalUpperServer server;
        ASSERT_TRUE(server.setup(path, 0, 4));
        Thread thread("LocalServer");
        ASSERT_TRUE(thread.start(server));
        LocalTcpSocket client;
        ASSERT_TRUE(client.open("", 0));
        ASSERT_TRUE(client.setConnection(path, 0));
        EXPECT_EQ(client.writeData("local", 5), 5);
        char buf[16] = {};
        EXPECT_EQ(client.recvData(buf, sizeof buf, 2000000), 5);
        EXPECT_EQ(std::string(buf, 5), "LOCAL");
        EXPECT_EQ(client.recvData(buf, sizeof buf, 2000000), 0);  // closed after the handler
        EXPECT_EQ(capture.waitLine("new local tcp"),
                  "<I>DATE [LocalTcpServer::run] new local tcp client connected.");
        EXPECT_TRUE(thread.stop(2000));
        EXPECT_EQ(capture.waitLine("local tcp service quit"),
                  "<I>DATE [LocalTcpServer::run] local tcp service quit.");
    }
    unlink(path.c_str());
    EXPECT_EQ(test::openFdCount(), before);
}

// Echoes every datagram to its sender; "quit" ends the loop.
class EchoUdpServer : public UdpServer {
  public:
    bool dataReceived(UdpSocket& sender, const char* data, int len) override {
        std::string text(data, static_cast<size_t>(len));
        if (text == "quit") return false;
        ++received;
        sender.writeData(data, len);
        return true;
    }
    std::atomic<int> received{0};
};

TEST(UdpServer, AnswersEachSenderAndStopsOnlyThroughItsHandler) {
    auto& capture = freshCapture();
    int before = test::openFdCount();
    {
        EchoUdpServer server;
        ASSERT_TRUE(server.setup("127.0.0.1", 0));
        Thread thread("UdpServerTest");
        ASSERT_TRUE(thread.start(server));
        unsigned short portA = 0, portB = 0;
        int a = nettest::bsdSocket(SOCK_DGRAM, &portA);
        int b = nettest::bsdSocket(SOCK_DGRAM, &portB);
        sockaddr_in to = nettest::loopback(server.localPort());
        auto send = [&to](int fd, const std::string& text) {
            sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        };
        send(a, "one");
        EXPECT_EQ(nettest::readSome(a), "one");
        send(b, "two");
        EXPECT_EQ(nettest::readSome(b), "two");
        EXPECT_EQ(nettest::readSome(a, 20), "");

        // A stop request alone does not end the loop; the handler does.
        EXPECT_FALSE(thread.stop(50));
        EXPECT_TRUE(capture.waitFor("force quit"));
        send(b, "three");
        EXPECT_EQ(nettest::readSome(b), "three");
        send(a, "quit");
        for (int i = 0; i < 300 && thread.isRunning(); ++i) Thread::msleep(10);
        EXPECT_FALSE(thread.isRunning());
        EXPECT_EQ(server.received.load(), 3);
        ::close(a);
        ::close(b);
    }
    EXPECT_EQ(test::openFdCount(), before);
}

TEST(UdpServer, EndsAtOnceWithoutAnOpenSocket) {
    auto& capture = freshCapture();
    EchoUdpServer server;
    EXPECT_FALSE(server.setup("192.0.2.1", 0));  // not an address of this host
    Thread thread("UdpNoSocket");
    ASSERT_TRUE(thread.start(server));
    EXPECT_EQ(capture.waitLine("[UdpServer::run,"), "<E>DATE [UdpServer::run,L#] socket not open.");
    EXPECT_TRUE(thread.stop(2000));
}

}  // namespace
}  // namespace orvane
