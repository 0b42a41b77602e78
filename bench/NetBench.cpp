// Loopback throughput of the servers against plain BSD-socket loops doing the
// same work in the same program:
//   TCP echo of 4 KiB and 64 KiB messages (bytes/s counts both directions' payload once)
//   UDP ping-pong of 64-byte datagrams (items/s = answered datagrams)

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <orvane/Server.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using orvane::TcpSocket;
using orvane::Thread;
using orvane::UdpSocket;

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

unsigned short boundPort(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

int connectTo(unsigned short port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

bool readFully(int fd, char* buf, size_t len) {
    size_t got = 0;
    while (got < len) {
        ssize_t n = read(fd, buf + got, len - got);
        if (n <= 0) return false;
        got += static_cast<size_t>(n);
    }
    return true;
}

bool writeFully(int fd, const char* data, size_t len) {
    size_t sent = 0;
    while (sent < len) {
        ssize_t n = write(fd, data + sent, len - sent);
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

// The client side of both TCP benchmarks: one message out, the same size back.
void echoRounds(benchmark::State& state, int fd) {
    size_t size = static_cast<size_t>(state.range(0));
    std::vector<char> message(size, 'm');
    std::vector<char> answer(size);
    for (auto _ : state) {
        if (!writeFully(fd, message.data(), size) || !readFully(fd, answer.data(), size)) {
            state.SkipWithError("echo failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

// Echoes everything one client sends until it hangs up, on the server's thread.
class EchoServer : public orvane::TcpServer {
  public:
    void newConnection(std::unique_ptr<TcpSocket>& client) override {
        std::vector<char> buf(65536);
        for (;;) {
            int n = client->readData(buf.data(), static_cast<int>(buf.size()));
            if (n <= 0 || client->writeData(buf.data(), n) != n) return;
        }
    }
};

void BM_TcpServerEcho(benchmark::State& state) {
    EchoServer server;
    server.setup("127.0.0.1", 0, 4);
    Thread thread("BenchTcpServer");
    thread.start(server);
    int fd = connectTo(server.localPort());
    echoRounds(state, fd);
    close(fd);
    thread.stop(2000);
}
BENCHMARK(BM_TcpServerEcho)->Arg(4096)->Arg(65536)->UseRealTime();

void BM_BsdEcho(benchmark::State& state) {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener, 4);
    std::thread echo([listener] {
        int client = accept(listener, nullptr, nullptr);
        std::vector<char> buf(65536);
        for (;;) {
            ssize_t n = read(client, buf.data(), buf.size());
            if (n <= 0 || !writeFully(client, buf.data(), static_cast<size_t>(n))) break;
        }
        close(client);
    });
    int fd = connectTo(boundPort(listener));
    echoRounds(state, fd);
    close(fd);
    echo.join();
    close(listener);
}
BENCHMARK(BM_BsdEcho)->Arg(4096)->Arg(65536)->UseRealTime();

// Answers every datagram to its sender; the one-byte datagram "q" ends the loop.
class UdpEchoServer : public orvane::UdpServer {
  public:
    bool dataReceived(UdpSocket& sender, const char* data, int len) override {
        if (len == 1 && data[0] == 'q') return false;
        sender.writeData(data, len);
        return true;
    }
};

// The client side of both UDP benchmarks: one datagram out, one back.
void pingPong(benchmark::State& state, unsigned short port) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to = loopback(port);
    connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to);
    timeval limit{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    char datagram[64] = {'p'};
    char answer[64];
    for (auto _ : state) {
        if (send(fd, datagram, sizeof datagram, 0) < 0 || recv(fd, answer, sizeof answer, 0) < 0) {
            state.SkipWithError("datagram lost");
            break;
        }
    }
    send(fd, "q", 1, 0);
    close(fd);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_UdpServerPingPong(benchmark::State& state) {
    UdpEchoServer server;
    server.setup("127.0.0.1", 0);
    Thread thread("BenchUdpServer");
    thread.start(server);
    pingPong(state, server.localPort());
    thread.stop(2000);
}
BENCHMARK(BM_UdpServerPingPong)->UseRealTime();

void BM_BsdUdpPingPong(benchmark::State& state) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    std::thread echo([fd] {
        char buf[1472];
        for (;;) {
            sockaddr_in from{};
            socklen_t size = sizeof from;
            ssize_t n = recvfrom(fd, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &size);
            if (n == 1 && buf[0] == 'q') break;
            if (n > 0)
                sendto(fd, buf, static_cast<size_t>(n), 0, reinterpret_cast<sockaddr*>(&from),
                       size);
        }
    });
    pingPong(state, boundPort(fd));
    echo.join();
    close(fd);
}
BENCHMARK(BM_BsdUdpPingPong)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
