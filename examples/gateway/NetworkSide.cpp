#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdio>

#include "Gateway.h"

namespace gateway {

namespace {

// A client that does not read its answers is closed before its backlog grows past this.
constexpr size_t kMaxPending = 64 * 1024;

std::string peerName(int fd) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return "?";
    char text[INET_ADDRSTRLEN + 8];
    char address[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &peer.sin_addr, address, sizeof address);
    snprintf(text, sizeof text, "%s:%u", address, ntohs(peer.sin_port));
    return text;
}

}  // namespace

NetworkSide::NetworkSide(const Options& gatewayOptions, Stats& gatewayStats,
                         std::shared_ptr<SerialSide> serialSide)
    : options(gatewayOptions),
      stats(gatewayStats),
      serial(std::move(serialSide)),
      loop_("gw-clients"),
      acceptThread("gw-accept") {}

NetworkSide::~NetworkSide() { onStop(); }

bool NetworkSide::onStart() {
    if (!acceptor.setup(options.listenHost, options.listenPort, 64) || !loop_.start()) {
        return false;
    }
    // Checked four times per idle period, at most once a second.
    double checkMs = std::min(1000.0, std::max(10.0, options.idleTimeoutS * 250));
    loop_.addTimer(int(checkMs), int(checkMs), [this] { closeIdle(); });
    if (!acceptThread.start(acceptor)) {
        loop_.stop();
        return false;
    }
    return true;
}

bool NetworkSide::onStop() {
    if (acceptThread.isRunning()) acceptThread.stop(-1);
    loop_.post([this] {
        while (!clients.empty()) closeClient(clients.begin()->first, "closed: gateway stopping");
    });
    loop_.stop();
    return true;
}

// On the accepting thread: hands the client to the loop, or refuses it.
void NetworkSide::adopt(std::unique_ptr<orvane::TcpSocket>& socket) {
    std::string name = peerName(socket->fd());
    if (stats.clients.load() >= options.maxClients) {
        ORVANE_LOG_WARN("NetworkSide", "client %s refused: %d clients connected (--max-clients %d)",
                        name.c_str(), stats.clients.load(), options.maxClients);
        return;  // the server closes it
    }
    ++stats.clients;
    ORVANE_LOG_INFO("NetworkSide", "client %s connected (%d connected)", name.c_str(),
                    stats.clients.load());
    fcntl(socket->fd(), F_SETFL, fcntl(socket->fd(), F_GETFL) | O_NONBLOCK);
    int noDelay = 1;  // answers are small and awaited: send each at once
    setsockopt(socket->fd(), IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
    auto client = std::make_shared<std::unique_ptr<orvane::TcpSocket>>(std::move(socket));
    loop_.post([this, client, name] {
        uint64_t id = nextId++;
        Client& entry = clients[id];
        entry.socket = std::move(*client);
        entry.name = name;
        entry.lastHeard = orvane::Time::fromMono();
        if (!loop_.watch(entry.socket->fd(), orvane::EventLoop::READABLE,
                         [this, id](int, unsigned events) { onEvents(id, events); })) {
            closeClient(id, "dropped: cannot watch it");
        }
    });
}

void NetworkSide::onEvents(uint64_t id, unsigned events) {
    auto found = clients.find(id);
    if (found == clients.end()) return;
    Client& client = found->second;
    if (events & orvane::EventLoop::WRITABLE) {
        send(id, client, "");
        if (clients.find(id) == clients.end()) return;
    }
    if (events & orvane::EventLoop::READABLE) {
        receive(id, client);
    } else if (events & (orvane::EventLoop::HANGUP | orvane::EventLoop::ERROR)) {
        closeClient(id, "hung up");
    }
}

void NetworkSide::receive(uint64_t id, Client& client) {
    char buf[4096];
    int n = client.socket->readData(buf, sizeof buf);
    if (n == 0) {
        closeClient(id, "disconnected");
        return;
    }
    if (n < 0) {
        if (errno != EAGAIN) closeClient(id, "dropped after a read error");
        return;
    }
    client.lastHeard = orvane::Time::fromMono();
    for (const std::string& frame : client.parser.parse(std::string(buf, size_t(n)))) {
        std::string payload = codec.decode(frame);  // a bad frame is logged there
        if (payload.empty()) {
            if (frame == codec.encode("")) {
                ORVANE_LOG_WARN("NetworkSide", "empty request from %s ignored",
                                client.name.c_str());
            }
            continue;
        }
        ++stats.requests;
        ORVANE_LOG_DEBUG("NetworkSide", "request from %s: %s", client.name.c_str(),
                         orvane::StrUtil::hexView(payload).c_str());
        serial->submit(id, payload);
    }
}

void NetworkSide::reply(uint64_t id, const std::string& payload) {
    std::string frame = codec.encode(payload);
    loop_.post([this, id, frame] { deliver(id, frame); });
}

// On the loop's thread: the answer goes to the client if it is still there.
void NetworkSide::deliver(uint64_t id, const std::string& frame) {
    auto found = clients.find(id);
    if (found == clients.end()) {
        ORVANE_LOG_DEBUG("NetworkSide", "answer for a client that left dropped");
        return;
    }
    send(id, found->second, frame);
}

// Sends `bytes` after what is pending; what the socket does not take waits
// for the socket to become writable.
void NetworkSide::send(uint64_t id, Client& client, const std::string& bytes) {
    bool wasPending = !client.pending.empty();
    client.pending += bytes;
    int n = client.pending.empty()
                ? 0
                : client.socket->writeData(client.pending.data(), int(client.pending.size()));
    if (n < 0) {
        closeClient(id, "dropped after a write error");
        return;
    }
    client.pending.erase(0, size_t(n));
    if (client.pending.size() > kMaxPending) {
        closeClient(id, "dropped: it does not read its answers");
        return;
    }
    bool pending = !client.pending.empty();
    if (pending != wasPending) {
        loop_.modify(client.socket->fd(),
                     orvane::EventLoop::READABLE | (pending ? orvane::EventLoop::WRITABLE : 0u));
    }
}

void NetworkSide::closeClient(uint64_t id, const char* why) {
    auto found = clients.find(id);
    if (found == clients.end()) return;
    loop_.unwatch(found->second.socket->fd());
    std::string name = found->second.name;
    clients.erase(found);  // closes the socket
    int left = --stats.clients;
    ORVANE_LOG_INFO("NetworkSide", "client %s %s (%d connected)", name.c_str(), why, left);
}

void NetworkSide::closeIdle() {
    const int64_t idleUs = int64_t(options.idleTimeoutS * 1e6);
    for (auto it = clients.begin(); it != clients.end();) {
        uint64_t id = it->first;
        int64_t silentUs = orvane::Time::usSinceMono(it->second.lastHeard);
        ++it;
        if (silentUs >= idleUs) {
            char why[64];
            snprintf(why, sizeof why, "closed: silent for %.1f s", double(silentUs) / 1e6);
            closeClient(id, why);
        }
    }
}

StatusSide::StatusSide(const Options& gatewayOptions, Stats& gatewayStats,
                       orvane::EventLoop& networkLoop)
    : options(gatewayOptions), stats(gatewayStats), loop(networkLoop) {}

bool StatusSide::onStart() {
    started = orvane::Time::fromMono();
    int periodMs = int(options.statusIntervalS * 1000);
    if (periodMs > 0) timer = loop.addTimer(periodMs, periodMs, [this] { report("status"); });
    return periodMs <= 0 || timer > 0;
}

bool StatusSide::onStop() {
    if (timer > 0) loop.cancelTimer(timer);
    timer = -1;
    report("final status");
    return true;
}

void StatusSide::report(const char* when) {
    ORVANE_LOG_INFO("Status", "%s: up %.0f s, %d clients, %llu requests, %llu answers, %llu errors",
                    when, double(orvane::Time::usSinceMono(started)) / 1e6, stats.clients.load(),
                    static_cast<unsigned long long>(stats.requests.load()),
                    static_cast<unsigned long long>(stats.answers.load()),
                    static_cast<unsigned long long>(stats.errors.load()));
}

}  // namespace gateway
