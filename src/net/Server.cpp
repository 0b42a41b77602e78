#include <orvane/Server.h>

#include <vector>

#include "io/WaitFd.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

// How long the accept loop waits for a client before it looks for a stop request.
constexpr int kStopCheckUs = 100000;

// The accept loop of both stream servers; its lines carry `className`, the
// name of the server class whose run() called it.
void serveClients(TcpServer& server, const std::unique_ptr<TcpSocket>& listenSocket,
                  const Thread& thread, bool local, const std::string& className) {
    if (!listenSocket || !listenSocket->isOpen()) ORVANE_ERROR_IN("run", "socket not open.");
    while (thread.isRunning()) {
        int err = 0;
        int listenFd = listenSocket ? listenSocket->fd() : -1;
        // A closed listening socket is not polled; the wait then only paces the loop.
        if (detail::waitFd(listenFd, false, kStopCheckUs, &err) != detail::WAIT_READY) continue;
        std::unique_ptr<TcpSocket> client;
        if (local) {
            client = std::make_unique<LocalTcpSocket>();
        } else {
            client = std::make_unique<TcpSocket>();
        }
        if (!listenSocket->acceptConnection(client.get())) continue;
        ORVANE_NOTE_IN("run", "new %stcp client connected.", local ? "local " : "");
        server.newConnection(client);
    }
    ORVANE_NOTE_IN("run", "%stcp service quit.", local ? "local " : "");
}

}  // namespace

// ---- TcpServer --------------------------------------------------------------

TcpServer::TcpServer() : className("TcpServer") {}

TcpServer::~TcpServer() = default;

bool TcpServer::setup(std::string addr, unsigned short port, int backlog) {
    return listenOn(std::make_unique<TcpSocket>(), addr, port, backlog);
}

bool TcpServer::listenOn(std::unique_ptr<TcpSocket> socket, const std::string& addr,
                         unsigned short port, int backlog) {
    listenSocket = std::move(socket);
    if (!listenSocket->open(addr, port)) return false;
    return listenSocket->listenConnection(backlog);
}

void TcpServer::quit() { Runnable::quit(); }

unsigned short TcpServer::localPort() const { return listenSocket ? listenSocket->localPort() : 0; }

void TcpServer::run(const Thread& runner) {
    serveClients(*this, listenSocket, runner, false, className);
}

// ---- LocalTcpServer ---------------------------------------------------------

LocalTcpServer::LocalTcpServer() : className("LocalTcpServer") {}

bool LocalTcpServer::setup(std::string path, unsigned short port, int backlog) {
    return listenOn(std::make_unique<LocalTcpSocket>(), path, port, backlog);
}

void LocalTcpServer::run(const Thread& runner) {
    serveClients(*this, listenSocket, runner, true, className);
}

// ---- UdpServer --------------------------------------------------------------

UdpServer::UdpServer() : className("UdpServer"), reserved(0) {}

UdpServer::~UdpServer() = default;

bool UdpServer::setup(std::string addr, unsigned short port) { return socket_.open(addr, port); }

void UdpServer::quit() {
    quitRequested = true;
    Runnable::quit();
}

void UdpServer::run(const Thread&) {
    constexpr int kDatagramBytes = 1472;
    constexpr int kWaitUs = 10000;
    std::vector<char> buffer(kDatagramBytes, 0);
    while (!quitRequested.load()) {
        // Nothing can arrive on a closed socket, and waiting on it would spin.
        if (!socket_.isOpen()) {
            ORVANE_ERROR_IN("run", "socket not open.");
            break;
        }
        int n = socket_.recvData(buffer.data(), kDatagramBytes, kWaitUs);
        if (n < 1) continue;
        if (!dataReceived(socket_, buffer.data(), n)) break;
    }
    quitRequested = false;
}

}  // namespace orvane
