#include "net/SocketIo.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "log/LogLine.h"

namespace orvane {
namespace detail {

bool checkTransfer(const std::string& className, const char* method, const void* buf, int len,
                   int fd) {
    if (buf == nullptr || len < 1) {
        ORVANE_ERROR_IN(method, "param error.");
        return false;
    }
    if (fd < 0) {
        ORVANE_ERROR_IN(method, "socket not open.");
        return false;
    }
    return true;
}

int readOnce(const std::string& className, const char* method, int fd, char* buf, int len) {
    ssize_t n = read(fd, buf, static_cast<size_t>(len));
    if (n < 0) {
        int err = errno;
        if (err != EAGAIN) ORVANE_ERROR_IN(method, "read error:%s", strerror(err));
        return -1;
    }
    return static_cast<int>(n);
}

int writeAll(const std::string& className, const char* method, int fd, const char* data, int len) {
    ignoreSigpipe();
    int written = 0;
    while (written < len) {
        ssize_t n = write(fd, data + written, static_cast<size_t>(len - written));
        if (n == 0) return 0;
        if (n < 0) {
            int err = errno;
            if (err == EAGAIN) return written;
            ORVANE_ERROR_IN(method, "write error:%s", strerror(err));
            return -1;
        }
        written += static_cast<int>(n);
    }
    return len;
}

int receiveReady(const std::string& className, const char* method, int fd, char* buf, int len,
                 int timeoutUs, bool peek) {
    int ready = awaitFd(className, method, fd, false, timeoutUs, "readfds error");
    if (ready < 1) return ready;
    ssize_t n = recv(fd, buf, static_cast<size_t>(len), peek ? MSG_PEEK : 0);
    if (n >= 0) return static_cast<int>(n);
    int err = errno;
    const char* verb = peek ? "peek" : "read";
    if (err == ECONNABORTED) {
        ORVANE_ERROR_IN(method, "socket %s error:%s", verb, strerror(err));
        return 0;
    }
    if (err != EAGAIN) ORVANE_ERROR_IN(method, "sockfd(%d) %s error:%s", fd, verb, strerror(err));
    return -1;
}

int sendReady(const std::string& className, const char* method, int fd, const char* data, int len,
              int timeoutUs) {
    int ready = awaitFd(className, method, fd, true, timeoutUs, "writefds error");
    if (ready < 1) return ready;
    ignoreSigpipe();
    ssize_t n = send(fd, data, static_cast<size_t>(len), 0);
    if (n < 0) {
        int err = errno;
        if (err != EAGAIN) ORVANE_ERROR_IN(method, "sockfd(%d) write error:%s", fd, strerror(err));
        return -1;
    }
    return static_cast<int>(n);
}

// Fits the small-string buffer, so no allocation.
std::string dotted(in_addr address) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

void ignoreSigpipe() { signal(SIGPIPE, SIG_IGN); }

}  // namespace detail
}  // namespace orvane
