#pragma once

// Plain BSD-socket peers on the loopback interface, for tests that check the
// library's sockets against an independent implementation.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <orvane/Socket.h>
#include <orvane/Tracer.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "support/LogCapture.h"

namespace orvane {
namespace nettest {

// The capture, emptied after every line logged so far has been delivered, so
// a test sees only its own lines.
inline test::LogCapture& freshCapture() {
    static int serial = 0;
    auto& capture = test::LogCapture::get();
    std::string marker = "net test marker " + std::to_string(++serial);
    Tracer::getInstance().print(1, "<I>%s", marker.c_str());
    capture.waitFor(marker);
    capture.clear();
    return capture;
}

inline sockaddr_in loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

inline unsigned short boundPort(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// A socket of `type` bound to 127.0.0.1 on an ephemeral port.
inline int bsdSocket(int type, unsigned short* port) {
    int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    if (type == SOCK_STREAM) listen(fd, 8);
    *port = boundPort(fd);
    return fd;
}

inline int bsdConnect(unsigned short port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// A port on which nothing listens (bound once, then released).
inline unsigned short freePort() {
    unsigned short port = 0;
    int fd = bsdSocket(SOCK_STREAM, &port);
    ::close(fd);
    return port;
}

// Up to `max` bytes that arrive within timeoutMs; "" on timeout or end of stream.
inline std::string readSome(int fd, int timeoutMs = 3000, size_t max = 4096) {
    pollfd entry{fd, POLLIN, 0};
    if (poll(&entry, 1, timeoutMs) != 1) return std::string();
    std::string text(max, '\0');
    ssize_t n = recv(fd, &text[0], max, 0);
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text;
}

// True when the peer closes the stream within timeoutMs.
inline bool closedByPeer(int fd, int timeoutMs = 3000) {
    pollfd entry{fd, POLLIN, 0};
    if (poll(&entry, 1, timeoutMs) != 1) return false;
    char byte = 0;
    return recv(fd, &byte, 1, 0) == 0;
}

// Connects `client` to a BSD listener on the loopback interface and returns
// the accepted descriptor of the other end (-1 on failure).
inline int connectPair(TcpSocket& client) {
    unsigned short port = 0;
    int listener = bsdSocket(SOCK_STREAM, &port);
    int server = -1;
    if (client.open("", 0) && client.setConnection("127.0.0.1", port)) {
        server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    }
    ::close(listener);
    return server;
}

inline void sendText(int fd, const std::string& text) {
    send(fd, text.data(), text.size(), MSG_NOSIGNAL);
}

}  // namespace nettest
}  // namespace orvane
