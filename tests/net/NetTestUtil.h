#pragma once

// Plain BSD-socket peers on the loopback interface, for tests that check the
// library's sockets against an independent implementation, and a check that
// each bad call logs exactly its one line.

#include <arpa/inet.h>
#include <orvane/Socket.h>
#include <poll.h>

#include "support/LogCapture.h"

namespace orvane {
namespace nettest {

// The capture, holding no line logged before this call.
inline test::LogCapture& freshCapture() {
    test::LogCapture::get().linesDuring([] {});  // every earlier line was delivered
    return test::LogCapture::fresh();
}

// Each call must return -1 and log exactly the error line "<E>DATE " + line
// (none if ""); lines of other levels do not count.
using BadCall = std::pair<std::function<int()>, std::string>;
inline void expectOneLineEach(const std::vector<BadCall>& cases) {
    for (auto& badCall : cases) {
        int result = 0;
        std::vector<std::string> errors;
        for (auto& line : test::LogCapture::get().linesDuring([&] { result = badCall.first(); }))
            if (line.rfind("<E>", 0) == 0) errors.push_back(line);
        EXPECT_EQ(errors,
                  std::vector<std::string>(!badCall.second.empty(), "<E>DATE " + badCall.second));
        EXPECT_EQ(result, -1) << badCall.second;
    }
}

// A socket of `type` bound to 127.0.0.1 on an ephemeral port (listening if a
// stream); a failed step shows in what the test reads.
inline int bsdSocket(int type, unsigned short* port) {
    int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    (void)bind(fd, reinterpret_cast<sockaddr*>(&address), size);
    if (type == SOCK_STREAM) (void)listen(fd, 8);
    (void)getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    *port = ntohs(address.sin_port);
    return fd;
}

// What arrives within timeoutMs: "" on timeout, "<eof>" when the peer closed.
inline std::string readSome(int fd, int timeoutMs = 3000) {
    pollfd entry{fd, POLLIN, 0};
    if (poll(&entry, 1, timeoutMs) != 1) return "";
    char buf[8192];
    ssize_t n = recv(fd, buf, sizeof buf, 0);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : n == 0 ? "<eof>" : "<error>";
}

// Sends on a connected stream, or as a datagram to 127.0.0.1:port.
inline void sendText(int fd, const std::string& text, unsigned short port = 0) {
    sockaddr_in to{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    sendto(fd, text.data(), text.size(), MSG_NOSIGNAL,
           port ? reinterpret_cast<sockaddr*>(&to) : nullptr, port ? sizeof to : 0);
}

}  // namespace nettest
}  // namespace orvane
