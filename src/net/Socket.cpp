#include <arpa/inet.h>
#include <orvane/Socket.h>
#include <orvane/Thread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "log/LogLine.h"
#include "net/SocketIo.h"

namespace orvane {

namespace {

sockaddr_in ipv4Address(const std::string& addr, unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = addr.empty() ? htonl(INADDR_ANY) : inet_addr(addr.c_str());
    return address;
}

// The path as a Unix-domain address; false when it does not fit.
bool localAddress(const std::string& path, sockaddr_un* address) {
    *address = sockaddr_un{};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) return false;
    memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

// The writability wait after a blocking connect, with the lines both stream
// sockets use; `timeoutText` is logged when the 5 s run out (nullptr: silent).
bool awaitConnected(const std::string& className, int fd, const char* timeoutText) {
    int ready =
        detail::awaitFd(className, "setConnection", fd, true, 5000000, "socket fd error.", ".");
    if (ready == -2 && timeoutText != nullptr) {
        ORVANE_ERROR_IN("setConnection", "%s", timeoutText);
    }
    return ready == 1;
}

// accept() for both stream sockets: the new descriptor goes to `client`
// (closed again when the client keeps its own). A failure sleeps 3 s so that
// a failing accept loop cannot spin; EAGAIN is neither logged nor slept on.
int acceptInto(const std::string& className, int fd, TcpSocket* client, sockaddr* peer,
               socklen_t* peerLen) {
    if (client == nullptr) {
        ORVANE_ERROR_IN("acceptConnection", "param error.");
        return -1;
    }
    UniqueFd sock(accept4(fd, peer, peerLen, SOCK_CLOEXEC));
    if (!sock) {
        int err = errno;
        if (err == EAGAIN) return -1;  // a non-blocking socket with nothing pending
        ORVANE_ERROR_IN("acceptConnection", "accept error:%s", strerror(err));
        Thread::msleep(3000);
        return -1;
    }
    int accepted = sock.get();
    if (client->fdopen(accepted)) sock.release();  // the client owns it now
    return accepted;
}

// A new IPv4 socket of `type` bound through owner.bindPort (a stream socket
// with SO_REUSEADDR set first), or none. A socket whose option or bind fails
// is given up without being closed: open() takes a socket only once it is
// bound, and its close() closes only what the object holds, so that socket
// stays open. Lines carry the calling class's name and "open".
UniqueFd openBound(const std::string& className, Socket& owner, int type, const std::string& addr,
                   unsigned short port) {
    UniqueFd sock(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    if (!sock) {
        int err = errno;
        ORVANE_ERROR_IN("open", "open socket error:%s", strerror(err));
        return sock;
    }
    int on = 1;
    bool ready = true;
    if (type == SOCK_STREAM &&
        setsockopt(sock.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        int err = errno;
        ORVANE_ERROR_IN("open", "setsockopt error:%s", strerror(err));
        ready = false;
    }
    if (ready && !owner.bindPort(sock.get(), port, addr)) ready = false;
    if (!ready) sock.release();  // left open, owned by nobody
    return sock;
}

}  // namespace

// ---- Socket -----------------------------------------------------------------

Socket::Socket() : className("Socket"), peerPort(0), localAddr() {}

Socket::~Socket() { Socket::close(); }

// Descriptor 0 is closed like any other here, unlike IODevice::close.
bool Socket::close() {
    fd_.reset();
    return true;
}

bool Socket::fdopen(int sock) {
    if (fd_.isAbove(0) || sock <= 0) return false;
    fd_.reset(sock);
    return true;
}

bool Socket::bindPort(int sock, unsigned short port, std::string addr) {
    if (sock < 0) {
        ORVANE_ERROR("socket is not open");
        return false;
    }
    localAddr = ipv4Address(addr, port);
    if (bind(sock, reinterpret_cast<const sockaddr*>(&localAddr), sizeof localAddr) != 0) {
        int err = errno;
        ORVANE_ERROR("bind(%s:%d) error:%s.", detail::dotted(localAddr.sin_addr).c_str(), port,
                     strerror(err));
        localAddr = sockaddr_in{};
        return false;
    }
    if (port == 0) {
        socklen_t size = sizeof localAddr;
        getsockname(sock, reinterpret_cast<sockaddr*>(&localAddr), &size);
    }
    ORVANE_NOTE("bind ok %s:%d", detail::dotted(localAddr.sin_addr).c_str(),
                ntohs(localAddr.sin_port));
    return true;
}

int Socket::readData(char* buf, int len) {
    if (!detail::checkTransfer(className, __func__, buf, len, fd_.get())) return -1;
    return detail::readOnce(className, __func__, fd_.get(), buf, len);
}

int Socket::writeData(const char* data, int len) {
    if (!detail::checkTransfer(className, __func__, data, len, fd_.get())) return -1;
    return detail::writeAll(className, __func__, fd_.get(), data, len);
}

int Socket::peekData(char* buf, int len, int timeoutUs) {
    if (!detail::checkTransfer(className, __func__, buf, len, fd_.get())) return -1;
    return detail::receiveReady(className, __func__, fd_.get(), buf, len, timeoutUs, true);
}

int Socket::recvData(char* buf, int len, int timeoutUs) {
    if (!detail::checkTransfer(className, __func__, buf, len, fd_.get())) return -1;
    return detail::receiveReady(className, __func__, fd_.get(), buf, len, timeoutUs, false);
}

int Socket::sendData(const char* data, int len, int timeoutUs) {
    if (!detail::checkTransfer(className, __func__, data, len, fd_.get())) return -1;
    return detail::sendReady(className, __func__, fd_.get(), data, len, timeoutUs);
}

int Socket::setOption(int opt, int value) {
    int name = 0;
    switch (opt) {
        case SOCK_OPT_TYPE:
            if (value == 1 || value == 2) return 0;
            if (value != 0) {
                ORVANE_ERROR("Unsupport socket type:%d", value);
                return -1;
            }
            name = SO_BROADCAST;
            value = 1;
            break;
        case SOCK_OPT_RCVBUF:
            name = SO_RCVBUF;
            break;
        case SOCK_OPT_SNDBUF:
            name = SO_SNDBUF;
            break;
        case SOCK_OPT_REUSEADDR:
            name = SO_REUSEADDR;
            break;
        default:
            ORVANE_ERROR("Unsupport socket option:%d", opt);
            return -1;
    }
    if (setsockopt(fd_.get(), SOL_SOCKET, name, &value, sizeof value) != 0) {
        int err = errno;
        ORVANE_ERROR("setsockopt error:%s", strerror(err));
        return -1;
    }
    return 0;
}

int Socket::getOption(int opt) {
    if (opt != SOCK_OPT_RCVBUF && opt != SOCK_OPT_SNDBUF) {
        ORVANE_ERROR("Unsupport socket option:%d", opt);
        return -1;
    }
    int value = 0;
    socklen_t size = sizeof value;
    int name = opt == SOCK_OPT_RCVBUF ? SO_RCVBUF : SO_SNDBUF;
    if (getsockopt(fd_.get(), SOL_SOCKET, name, &value, &size) != 0) {
        int err = errno;
        ORVANE_ERROR("getsockopt error:%s", strerror(err));
        return -1;
    }
    return value;
}

bool Socket::setConnection(const std::string& addr, unsigned short port) {
    if (!addr.empty()) peerAddr = addr;
    peerPort = port;
    return true;
}

bool Socket::getConnection(std::string* addr, unsigned short* port) {
    if (addr != nullptr) *addr = peerAddr;
    if (port != nullptr) *port = peerPort;
    return true;
}

// ---- TcpSocket --------------------------------------------------------------

TcpSocket::TcpSocket() : className("TcpSocket") {}

bool TcpSocket::open(const std::string& addr, unsigned short port) {
    if (fd_.valid()) return true;
    UniqueFd sock = openBound(className, *this, SOCK_STREAM, addr, port);
    if (!sock) {
        close();  // the object holds nothing yet: this closes nothing
        return false;
    }
    fd_ = std::move(sock);
    return true;
}

bool TcpSocket::close() { return Socket::close(); }

bool TcpSocket::setConnection(const std::string& addr, unsigned short port) {
    if (addr.empty()) {
        ORVANE_ERROR("peer ip addr not set");
        return false;
    }
    sockaddr_in peer = ipv4Address(addr, port);
    ORVANE_NOTE("connect to %s:%d", addr.c_str(), port);
    if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0) {
        int err = errno;
        ORVANE_ERROR("connect error:%s.", strerror(err));
        return false;
    }
    if (!awaitConnected(className, fd_.get(), nullptr)) return false;
    peerAddr = addr;
    peerPort = port;
    return true;
}

bool TcpSocket::listenConnection(int backlog) {
    if (listen(fd_.get(), backlog) != 0) {
        int err = errno;
        ORVANE_ERROR("listen error:%s.", strerror(err));
        return false;
    }
    return true;
}

bool TcpSocket::acceptConnection(TcpSocket* client) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (acceptInto(className, fd_.get(), client, reinterpret_cast<sockaddr*>(&peer), &size) < 0) {
        return false;
    }
    ORVANE_NOTE("tcp connection from %s:%d", detail::dotted(peer.sin_addr).c_str(),
                ntohs(peer.sin_port));
    return true;
}

// ---- LocalTcpSocket ---------------------------------------------------------

LocalTcpSocket::LocalTcpSocket() : className("LocalTcpSocket") {}

bool LocalTcpSocket::open(const std::string& path, unsigned short) {
    if (fd_.valid()) return true;
    UniqueFd sock(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!sock) {
        int err = errno;
        ORVANE_ERROR("open socket error:%s", strerror(err));
        return false;
    }
    if (!path.empty()) {
        sockaddr_un address;
        int result = -1;
        int err = ENAMETOOLONG;
        if (localAddress(path, &address)) {
            unlink(path.c_str());
            result = bind(sock.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
            err = errno;
        }
        if (result != 0) {
            ORVANE_ERROR("bind error:%s.", strerror(err));
            return false;
        }
    }
    fd_ = std::move(sock);
    localPath_ = path;
    return true;
}

bool LocalTcpSocket::setConnection(const std::string& path, unsigned short port) {
    if (!localPath_.empty()) unlink(localPath_.c_str());
    ORVANE_NOTE("connect to %s", path.c_str());
    sockaddr_un address;
    if (!localAddress(path, &address)) {
        ORVANE_ERROR("connect error:%s.", strerror(ENAMETOOLONG));
        return false;
    }
    if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        int err = errno;
        ORVANE_ERROR("connect error:%s.", strerror(err));
        return false;
    }
    if (!awaitConnected(className, fd_.get(), "connect error.")) return false;
    peerPath = path;
    peerAddr = path;
    peerPort = port;
    ORVANE_NOTE("Local Socket connect success.");
    return true;
}

bool LocalTcpSocket::acceptConnection(TcpSocket* client) {
    return acceptInto(className, fd_.get(), client, nullptr, nullptr) >= 0;
}

// ---- UdpSocket --------------------------------------------------------------

UdpSocket::UdpSocket() : className("UdpSocket") {}

bool UdpSocket::open(const std::string& addr, unsigned short port) {
    if (fd_.valid()) return true;
    UniqueFd sock = openBound(className, *this, SOCK_DGRAM, addr, port);
    if (!sock) {
        close();  // the object holds nothing yet: this closes nothing
        return false;
    }
    fd_ = std::move(sock);
    return true;
}

bool UdpSocket::close() { return Socket::close(); }

int UdpSocket::receiveFrom(char* buf, int len, int flags, const char* method) {
    sockaddr_in sender{};
    socklen_t size = sizeof sender;
    ssize_t n = recvfrom(fd_.get(), buf, static_cast<size_t>(len), flags,
                         reinterpret_cast<sockaddr*>(&sender), &size);
    if (n < 0) {
        int err = errno;
        if (err != EAGAIN)
            ORVANE_ERROR_IN(method, "sockfd(%d) read error:%s", fd_.get(), strerror(err));
        return -1;
    }
    peerAddr = detail::dotted(sender.sin_addr);
    peerPort = ntohs(sender.sin_port);
    return static_cast<int>(n);
}

int UdpSocket::readData(char* buf, int len) {
    if (!detail::checkTransfer(className, __func__, buf, len, fd_.get())) return -1;
    return receiveFrom(buf, len, 0, __func__);
}

int UdpSocket::recvData(char* buf, int len, int timeoutUs) {
    if (!detail::checkTransfer(className, __func__, buf, len, fd_.get())) return -1;
    int ready = detail::awaitFd(className, __func__, fd_.get(), false, timeoutUs, "readfds error.");
    if (ready < 1) return ready;
    return receiveFrom(buf, len, MSG_DONTWAIT, __func__);
}

int UdpSocket::sendTo(const char* data, int len, const char* method) {
    detail::ignoreSigpipe();
    sockaddr_in peer = ipv4Address(peerAddr, peerPort);
    ssize_t n = sendto(fd_.get(), data, static_cast<size_t>(len), 0,
                       reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
    if (n < 0) {
        int err = errno;
        if (err != EAGAIN && method != nullptr) {
            ORVANE_ERROR_IN(method, "sockfd(%d) write error:%s", fd_.get(), strerror(err));
        }
        return -1;
    }
    return static_cast<int>(n);
}

int UdpSocket::writeData(const char* data, int len) {
    if (!peerSet()) {
        ORVANE_ERROR("peer not set, peerAddr:%s, peerPort:%d.", peerAddr.c_str(), peerPort);
        return -1;
    }
    if (!detail::checkTransfer(className, __func__, data, len, fd_.get())) return -1;
    return sendTo(data, len, __func__);
}

int UdpSocket::sendData(const char* data, int len, int timeoutUs) {
    if (!peerSet()) {
        ORVANE_ERROR("peer not set, peerAddr:%s, peerPort:%d.", peerAddr.c_str(), peerPort);
        return -1;
    }
    if (!detail::checkTransfer(className, __func__, data, len, fd_.get())) return -1;
    int ready =
        detail::awaitFd(className, __func__, fd_.get(), true, timeoutUs, "writefds error.", ".");
    if (ready < 1) return ready;
    return sendTo(data, len, __func__);
}

int UdpSocket::writeTrace(const char* data, int len) {
    if (!peerSet() || data == nullptr || len < 1 || !fd_) return -1;
    return sendTo(data, len, nullptr);
}

}  // namespace orvane
