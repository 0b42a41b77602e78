#include <fcntl.h>
#include <orvane/SocketPair.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "log/LogLine.h"
#include "net/SocketIo.h"

namespace orvane {

SocketPair::SocketPair() : className("SocketPair"), type_(STREAM) {}

SocketPair::~SocketPair() { close(); }

bool SocketPair::open(int type) {
    if (type != STREAM && type != DATAGRAM) {
        ORVANE_ERROR("unsupported socket pair type:%d", type);
        return false;
    }
    close();
    int fds[2] = {-1, -1};
    int kind = type == STREAM ? SOCK_STREAM : SOCK_DGRAM;
    if (socketpair(AF_UNIX, kind | SOCK_CLOEXEC, 0, fds) != 0) {
        int err = errno;
        ORVANE_ERROR("socketpair error:%s", strerror(err));
        return false;
    }
    ends[0].reset(fds[0]);
    ends[1].reset(fds[1]);
    type_ = type;
    return true;
}

bool SocketPair::close() {
    ends[0].reset();
    ends[1].reset();
    return true;
}

bool SocketPair::validEnd(int end, const char* method) const {
    if (end == 0 || end == 1) return true;
    ORVANE_ERROR_IN(method, "bad end:%d (0 or 1)", end);
    return false;
}

int SocketPair::openEnd(int end, const char* method) const {
    if (!validEnd(end, method)) return -1;
    if (!ends[end]) ORVANE_ERROR_IN(method, "end %d is not open", end);
    return ends[end].get();
}

int SocketPair::transferFd(int end, const char* method, const void* buf, int len) const {
    if (!validEnd(end, method)) return -1;
    int fd = ends[end].get();
    return detail::checkTransfer(className, method, buf, len, fd) ? fd : -1;
}

bool SocketPair::closeEnd(int end) {
    if (openEnd(end, __func__) < 0) return false;
    ends[end].reset();
    return true;
}

int SocketPair::shareEnd(int end) {
    int fd = openEnd(end, __func__);
    if (fd < 0) return -1;
    int flags = fcntl(fd, F_GETFD);
    if (flags < 0 || fcntl(fd, F_SETFD, flags & ~FD_CLOEXEC) != 0) {
        int err = errno;
        ORVANE_ERROR("fcntl(%d) error:%s", fd, strerror(err));
        return -1;
    }
    return fd;
}

int SocketPair::releaseEnd(int end) {
    return openEnd(end, __func__) < 0 ? -1 : ends[end].release();
}

bool SocketPair::isOpen(int end) const { return (end == 0 || end == 1) && ends[end].valid(); }

int SocketPair::fd(int end) const { return isOpen(end) ? ends[end].get() : -1; }

int SocketPair::readData(int end, char* buf, int len) {
    int fd = transferFd(end, __func__, buf, len);
    return fd < 0 ? -1 : detail::readOnce(className, __func__, fd, buf, len);
}

int SocketPair::writeData(int end, const char* data, int len) {
    int fd = transferFd(end, __func__, data, len);
    return fd < 0 ? -1 : detail::writeAll(className, __func__, fd, data, len);
}

int SocketPair::recvData(int end, char* buf, int len, int timeoutUs) {
    int fd = transferFd(end, __func__, buf, len);
    if (fd < 0) return -1;
    return detail::receiveReady(className, __func__, fd, buf, len, timeoutUs, false);
}

int SocketPair::peekData(int end, char* buf, int len, int timeoutUs) {
    int fd = transferFd(end, __func__, buf, len);
    if (fd < 0) return -1;
    return detail::receiveReady(className, __func__, fd, buf, len, timeoutUs, true);
}

int SocketPair::sendData(int end, const char* data, int len, int timeoutUs) {
    int fd = transferFd(end, __func__, data, len);
    if (fd < 0) return -1;
    return detail::sendReady(className, __func__, fd, data, len, timeoutUs);
}

}  // namespace orvane
