#pragma once

// orvane-gateway: a serial device served to TCP clients. Clients send
// requests as AnyPacket frames; one request at a time goes to the serial
// device, and its answer goes back to the client that asked.
//
//   network side   TcpServer thread accepts; one EventLoop thread serves all
//                  clients (cuts frames, decodes, answers, closes idle ones)
//   serial side    a task per request on the application's workers; one
//                  request on the line at a time, in arrival order
//   status         a periodic status line on the network loop
//
// Without --serial the serial side opens a pseudo-terminal pair and plays
// the device itself on the far end (SimulatedDevice).

#include <orvane/orvane.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace gateway {

// Error answers: 0xFF followed by one of these codes.
enum ErrorCode : unsigned char {
    kNoAnswer = 0x01,        // the device did not answer within --timeout
    kBadAnswer = 0x02,       // the device's answer did not decode
    kUnknownCommand = 0x03,  // the (simulated) device does not know the command
    kWriteFailed = 0x04,     // writing to the serial port failed
};
std::string errorPayload(ErrorCode code);

// Log lines go through ORVANE_LOG_INFO and its siblings (orvane/Tracer.h),
// in the library's own shape: "<I>date [SerialSide::onStart,L41] text". Call
// them from named functions, not lambdas, whose __func__ is "operator()".

struct Options {
    std::string listenHost = "127.0.0.1";
    unsigned short listenPort = 5020;
    std::string serialPath;  // empty: simulated device on a pseudo-terminal
    orvane::SerialPort::LineSettings line;
    bool rs485 = false;
    int timeoutMs = 1000;
    std::string logUdpHost;
    unsigned short logUdpPort = 0;
    bool syslog = false;
    bool verbose = false;
    int maxClients = 16;
    double idleTimeoutS = 60;
    double runForS = 0;  // 0: until SIGINT or SIGTERM
    double statusIntervalS = 10;
};

// Parses the command line. Returns -1 to go on, or the exit status (0 after
// --help, 2 after a bad option, with the message on stderr).
int parseOptions(int argc, char** argv, Options* options);
// "HOST:PORT" into its parts; false for a malformed text.
bool splitHostPort(const std::string& text, std::string* host, unsigned short* port);

struct Stats {
    std::atomic<int> clients{0};
    std::atomic<uint64_t> requests{0};
    std::atomic<uint64_t> answers{0};
    std::atomic<uint64_t> errors{0};
};

// The device on the far end of a pseudo-terminal, served by its own loop:
// 0x01 echo (answers the request as it came), 0x02 status (0x02 and a line
// of text: uptime, CPU and memory), anything else the 0x03 error.
class SimulatedDevice {
  public:
    SimulatedDevice();
    ~SimulatedDevice();
    // Creates the pair; path() is then the terminal to open as the port.
    bool open();
    const std::string& path() const { return slavePath; }
    // Serves requests; call after the port side was opened and configured.
    bool start();
    void stop();
    std::string answer(const std::string& request);

  private:
    void onReadable(int fd, unsigned events);

    orvane::UniqueFd master;
    std::string slavePath;
    orvane::EventLoop loop;
    orvane::AnyPacket parser;
    orvane::AnyPacket::Frame codec;
    orvane::SysStat stat;
    orvane::Time started;
};

// The serial side: owns the port (and the simulated device), takes requests
// from any thread and serves them on the application's workers.
class SerialSide : public orvane::Component, public std::enable_shared_from_this<SerialSide> {
  public:
    using Reply = std::function<void(uint64_t client, const std::string& payload)>;
    SerialSide(const Options& options, Stats& stats);
    void setReply(Reply reply) { reply_ = std::move(reply); }
    bool onStart() override;
    bool onStop() override;
    // Queues a request; its answer (or error) goes to the reply function.
    void submit(uint64_t client, const std::string& payload);

  private:
    struct Request {
        uint64_t client;
        std::string payload;
    };
    void serveOne();
    std::string exchange(const std::string& payload);
    void discardStale();

    const Options& options;
    Stats& stats;
    Reply reply_;
    orvane::SerialPort port;
    std::unique_ptr<SimulatedDevice> device;
    orvane::AnyPacket::Frame codec;
    std::atomic<bool> lineOpen{false};
    std::mutex lineMutex;  // one request on the line at a time
    std::mutex queueMutex;
    std::deque<Request> requests;
};

// The network side: a TcpServer thread that hands each client to one
// EventLoop thread serving every connection.
class NetworkSide : public orvane::Component {
  public:
    NetworkSide(const Options& options, Stats& stats, std::shared_ptr<SerialSide> serial);
    ~NetworkSide() override;
    bool onStart() override;
    bool onStop() override;
    // Sends `payload` framed to `client`, from any thread; dropped when the
    // client has gone.
    void reply(uint64_t client, const std::string& payload);
    orvane::EventLoop& loop() { return loop_; }
    unsigned short port() const { return acceptor.localPort(); }

  private:
    class Acceptor : public orvane::TcpServer {
      public:
        explicit Acceptor(NetworkSide* owner) : side(owner) {}
        void newConnection(std::unique_ptr<orvane::TcpSocket>& client) override {
            side->adopt(client);
        }

      private:
        NetworkSide* side;
    };
    struct Client {
        std::unique_ptr<orvane::TcpSocket> socket;
        std::string name;
        orvane::AnyPacket parser;
        std::string pending;  // answer bytes the socket did not take yet
        orvane::Time lastHeard;
    };

    void adopt(std::unique_ptr<orvane::TcpSocket>& socket);
    void onEvents(uint64_t id, unsigned events);
    void receive(uint64_t id, Client& client);
    void deliver(uint64_t id, const std::string& frame);
    void send(uint64_t id, Client& client, const std::string& bytes);
    void closeClient(uint64_t id, const char* why);
    void closeIdle();

    const Options& options;
    Stats& stats;
    std::shared_ptr<SerialSide> serial;
    orvane::EventLoop loop_;
    Acceptor acceptor{this};
    orvane::Thread acceptThread;
    orvane::AnyPacket::Frame codec;
    std::map<uint64_t, Client> clients;  // the loop's thread only
    uint64_t nextId = 1;                 // the loop's thread only
};

// Logs a status line every --status-interval seconds on the network loop,
// and a last one when the gateway stops.
class StatusSide : public orvane::Component {
  public:
    StatusSide(const Options& options, Stats& stats, orvane::EventLoop& loop);
    bool onStart() override;
    bool onStop() override;

  private:
    void report(const char* when);

    const Options& options;
    Stats& stats;
    orvane::EventLoop& loop;
    int timer = -1;
    orvane::Time started;
};

}  // namespace gateway
