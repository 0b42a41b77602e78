#pragma once

#include <netinet/in.h>
#include <orvane/Export.h>
#include <orvane/UniqueFd.h>

#include <string>

namespace orvane {

// Selector of Socket::setOption / getOption (socket level SOL_SOCKET).
enum SocketOption {
    SOCK_OPT_TYPE = 0,       // set only: value 0 enables SO_BROADCAST; 1 and 2 change nothing
    SOCK_OPT_RCVBUF = 1,     // SO_RCVBUF
    SOCK_OPT_SNDBUF = 2,     // SO_SNDBUF
    SOCK_OPT_REUSEADDR = 3,  // set only: SO_REUSEADDR
};

// Base of the library's endpoints over one socket descriptor. Data calls
// follow the library's convention: a byte count, -1 on an error (logged
// once, except EAGAIN which is never logged) and -2 when the wait of
// recvData/sendData/peekData (in microseconds, negative waits without limit)
// runs out. The socket stays open after a failed transfer; the caller
// decides to close it. Every send sets SIGPIPE to ignored for the whole
// process (one signal() call per send), so writing to a closed peer returns
// -1 instead of ending the program. No locking inside: one socket belongs to one thread at a time.
// The descriptor is close-on-exec and closed by close() and the destructor,
// descriptor 0 included.
class ORVANE_API Socket {
  public:
    Socket();
    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // Opens the descriptor and binds it to a local address ("" any) and port
    // (0 lets the kernel choose). Does nothing and succeeds when already open.
    virtual bool open(const std::string& addr, unsigned short port) = 0;
    // Closes the descriptor; true also when none is open.
    virtual bool close();
    // One read; 0 at the peer's end of stream.
    virtual int readData(char* buf, int len);
    // Writes all `len` bytes; on EAGAIN returns what was written so far.
    virtual int writeData(const char* data, int len);
    // Waits up to timeoutUs for data and copies it without taking it: the byte count, 0 at the end
    // of stream, -1 on error, -2 on timeout.
    virtual int peekData(char* buf, int len, int timeoutUs);
    // Waits up to timeoutUs for data, then one read: the byte count, 0 at the end of stream, -1 on
    // error, -2 on timeout.
    virtual int recvData(char* buf, int len, int timeoutUs);
    // Waits up to timeoutUs until the socket is writable, then one send: the byte count, -1 on
    // error, -2 on timeout.
    virtual int sendData(const char* data, int len, int timeoutUs);
    // SocketOption selectors; 0 on success, -1 on failure.
    virtual int setOption(int opt, int value);
    // The value of SOCK_OPT_RCVBUF or SOCK_OPT_SNDBUF, else -1.
    virtual int getOption(int opt);
    // Records the peer: the address only when non-empty, and the port.
    virtual bool setConnection(const std::string& addr, unsigned short port);
    // Copies the recorded peer address and port into the pointers that are
    // not null; always true.
    virtual bool getConnection(std::string* addr, unsigned short* port);

    // Binds `sock` to addr:port; port 0 takes the kernel's choice, logged and
    // kept (see localPort).
    bool bindPort(int sock, unsigned short port, std::string addr);
    // True while a descriptor is held.
    bool isOpen() const { return fd_.valid(); }
    // The descriptor, or -1 when closed.
    int fd() const { return fd_.get(); }
    // Adopts `sock` when this socket holds no descriptor (fd < 1) and sock > 0;
    // a descriptor 0 held until then is closed.
    bool fdopen(int sock);
    // The port of the last successful bindPort, host order; 0 before.
    unsigned short localPort() const { return ntohs(localAddr.sin_port); }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The peer's address as set by setConnection or the last receive.
    std::string peerAddr;
    // The peer's port, host order.
    unsigned short peerPort;
    // The socket's descriptor (close-on-exec).
    UniqueFd fd_;
    // The address bindPort bound; zeroed when its bind failed.
    sockaddr_in localAddr;
};

// IPv4 stream socket: a listening socket (open, listenConnection,
// acceptConnection) or a client (open("", 0) first, then setConnection).
// open() sets SO_REUSEADDR. When that or the bind fails, open() leaves the
// socket it created open and owned by nobody (the object takes a socket only
// once it is bound): each such failure costs the process one descriptor.
// setConnection blocks in connect() and then waits at most 5 s
// for the socket to become writable. A failed accept sleeps 3 s before it
// returns, so that a failing accept loop cannot spin.
class ORVANE_API TcpSocket : public Socket {
  public:
    TcpSocket();
    bool open(const std::string& addr, unsigned short port) override;
    // Closes the socket; true also when it was not open.
    bool close() override;
    // Connects to addr:port and records it as the peer.
    bool setConnection(const std::string& addr, unsigned short port) override;
    // Starts listening with a queue of `backlog` pending connections; false when not open or
    // listen() fails.
    virtual bool listenConnection(int backlog);
    // Accepts one connection and hands its descriptor to `client`; a client
    // that is already open keeps its own descriptor and the new one is closed.
    virtual bool acceptConnection(TcpSocket* client);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
};

// Unix-domain stream socket; addresses are socket file paths and ports are
// ignored. open(path) removes a stale file at `path` and binds to it (an
// empty path opens an unbound client socket); the file stays after close.
// setConnection(peerPath) removes this socket's own file, then connects.
// A failed accept pauses 3 s, as TcpSocket's does, so a server loop on a
// broken socket cannot spin.
class ORVANE_API LocalTcpSocket : public TcpSocket {
  public:
    LocalTcpSocket();
    bool open(const std::string& path, unsigned short port) override;
    bool setConnection(const std::string& path, unsigned short port) override;
    bool acceptConnection(TcpSocket* client) override;

    // The path this socket is bound to; empty for an unbound client.
    const std::string& localPath() const { return localPath_; }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The socket file this socket is bound to.
    std::string localPath_;
    // The socket file of the peer it connected to.
    std::string peerPath;
};

// IPv4 datagram socket. Every receive records the sender as the peer, so a
// send after a receive answers the last sender; setConnection() sets the
// peer explicitly. Sends fail with "peer not set" until a peer is known.
// A failed bind in open() leaves the new socket open and owned by nobody, as
// TcpSocket's does.
class ORVANE_API UdpSocket : public Socket {
  public:
    UdpSocket();
    bool open(const std::string& addr, unsigned short port) override;
    // Closes the socket; true also when it was not open.
    bool close() override;
    int readData(char* buf, int len) override;
    int writeData(const char* data, int len) override;
    // Waits up to timeoutUs for a datagram and receives it, recording its sender as the peer: the
    // byte count, -1 on error, -2 on timeout.
    int recvData(char* buf, int len, int timeoutUs) override;
    // Waits up to timeoutUs until writable, then sends one datagram to the peer: the byte count, -1
    // on error (also with no peer), -2 on timeout.
    int sendData(const char* data, int len, int timeoutUs) override;
    // Sends one datagram to the peer without logging anything; -1 on any
    // failure. Meant for log output, which must never log.
    int writeTrace(const char* data, int len);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    int receiveFrom(char* buf, int len, int flags, const char* method);
    // One sendto() to the peer; failures are logged under `method` (nullptr: silent).
    int sendTo(const char* data, int len, const char* method);
    bool peerSet() const { return !peerAddr.empty() && peerPort != 0; }
};

}  // namespace orvane
