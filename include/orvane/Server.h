#pragma once

#include <orvane/Export.h>
#include <orvane/Socket.h>
#include <orvane/Thread.h>

#include <atomic>
#include <memory>
#include <string>

namespace orvane {

// Skeleton of an IPv4 stream server, run on a Thread as its Runnable. The
// application derives from it and implements newConnection(), which is
// called on the server's thread once per accepted client, one client at a
// time. The handler takes a client over by moving it out of the reference
// (and may then serve it on another thread); a client left in the reference
// is closed as soon as the handler returns. The loop checks for a stop
// request (Thread::stop or quit) every 100 ms while no client arrives, and
// never ends on a socket error: a failed accept is logged and, after a 3 s
// pause, retried. Call setup() before starting the thread, and stop the
// thread before destroying the server.
class ORVANE_API TcpServer : public Runnable {
  public:
    TcpServer();
    ~TcpServer() override;
    TcpServer(const TcpServer&) = delete;
    TcpServer& operator=(const TcpServer&) = delete;

    void run(const Thread& runner) override;
    // Replaces the listening socket (the old one is closed) with a new one
    // bound to addr:port ("" any address, port 0 the kernel's choice) and
    // listening with `backlog`.
    virtual bool setup(std::string addr, unsigned short port, int backlog);
    // Called on the server's thread with each accepted client; move it out of the reference to keep
    // it.
    virtual void newConnection(std::unique_ptr<TcpSocket>& client) = 0;

    // Asks the thread running this server to stop.
    void quit();
    // The bound port of the listening socket (host order); 0 before setup.
    unsigned short localPort() const;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The socket the server accepts on; empty before setup().
    std::unique_ptr<TcpSocket> listenSocket;

    // Opens `socket` on addr:port, listens with `backlog` and makes it the listening socket; false
    // (logged) when a step fails.
    bool listenOn(std::unique_ptr<TcpSocket> socket, const std::string& addr, unsigned short port,
                  int backlog);
};

// TcpServer over a Unix-domain socket: setup(path, port, backlog) binds the
// socket file `path` (port ignored), replacing a stale file; clients are
// LocalTcpSockets. The socket file stays after the server is destroyed.
class ORVANE_API LocalTcpServer : public TcpServer {
  public:
    LocalTcpServer();
    void run(const Thread& runner) override;
    bool setup(std::string path, unsigned short port, int backlog) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
};

// Skeleton of an IPv4 datagram server, run on a Thread as its Runnable. The
// application implements dataReceived(), called on the server's thread for
// every datagram (at most 1472 bytes are read); `socket` then holds the
// sender as its peer, so socket.writeData() answers it. The loop waits 10 ms
// at a time and ends when the handler returns false or when quit() is called
// (from any thread). Thread::stop alone does NOT stop a UdpServer: call
// quit() first, then Thread::stop. A stop without it times out, and the
// Thread's destructor then waits for the loop for ever. A server whose
// socket is not open ends its loop at once.
//
//     StatusServer server;            // derives from UdpServer
//     server.setup("127.0.0.1", 5021);
//     Thread thread("status");
//     thread.start(server);
//     ...
//     server.quit();                  // the loop ends within 10 ms
//     thread.stop(1000);
class ORVANE_API UdpServer : public Runnable {
  public:
    UdpServer();
    ~UdpServer() override;
    UdpServer(const UdpServer&) = delete;
    UdpServer& operator=(const UdpServer&) = delete;

    void run(const Thread& runner) override;
    // Returns false to end the server's loop.
    virtual bool dataReceived(UdpSocket& socket, const char* data, int len) = 0;

    // Binds the socket to addr:port ("" any address, port 0 the kernel's choice).
    bool setup(std::string addr, unsigned short port);
    // The bound port (host order); 0 before setup.
    unsigned short localPort() const { return socket_.localPort(); }
    // The server's socket, to send answers from outside the handler.
    UdpSocket& socket() { return socket_; }
    // Ends the loop within one 10 ms wait, from any thread (a handler on the
    // server's thread may call it too), and clears the running flag of the
    // thread running it. A datagram being handled is finished first. Called
    // while no loop runs, it ends the next run() at once; run() forgets the
    // request as it returns, so the server can be started again.
    void quit();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The socket the server receives on.
    UdpSocket socket_;
    int reserved;  // kept for layout; unused

  private:
    std::atomic<bool> quitRequested{false};
};

}  // namespace orvane
