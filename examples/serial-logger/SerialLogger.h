#pragma once

// orvane-serial-logger: every line a serial device sends goes to DIR/serial.log
// with a local-time stamp, on disk at once; the log rotates by size; a UDP
// "status" request is answered; a device that goes away is waited for.
//
// One EventLoop thread serves everything: the port, the status socket and a
// once-a-second timer that reopens a port that went away.

#include <orvane/orvane.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace logger {

struct Options {
    std::string serialPath;
    orvane::SerialPort::LineSettings line;
    std::string dir;
    long maxBytes = 1 << 20;
    int keep = 5;
    std::string statusHost = "127.0.0.1";
    unsigned short statusPort = 5021;
    double runForS = 0;  // 0: until SIGINT or SIGTERM
    bool verbose = false;
};

// Parses the command line. Returns -1 to go on, or the exit status (0 after
// --help, 2 after a bad or missing option, with the message on stderr).
int parseOptions(int argc, char** argv, Options* options);

class SerialLogger : public orvane::Component {
  public:
    explicit SerialLogger(const Options& options);
    // Opens the log, the status socket and the port, and starts the loop.
    // False, logged, when the log directory cannot be written.
    bool onStart() override;
    // Writes what the port delivered up to now, then stops the loop.
    bool onStop() override;
    uint64_t lines() const { return lines_.load(); }

  private:
    void openPort();
    void closePort();
    // Reads what the port has (EventLoop events, or 0 when asked directly)
    // and logs the complete lines; false when nothing came.
    bool readPort(unsigned events);
    void onStatus();
    void everySecond();
    // Appends one stamped line, rotating first when it would not fit.
    void write(const std::string& line);
    bool openLog();
    void rotate();

    const Options& options;
    orvane::EventLoop loop{"logger"};
    orvane::SerialPort port;
    orvane::LineBuffer pending;
    orvane::IODevice log;  // unbuffered: each line is one write(), visible at once
    long logSize = 0;
    orvane::UdpSocket status;
    orvane::Time started = orvane::Time::fromMono();
    std::atomic<uint64_t> lines_{0};
    bool gone = false;  // the device went away and was not back yet
};

}  // namespace logger
