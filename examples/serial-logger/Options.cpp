#include <cstdio>
#include <cstdlib>

#include "SerialLogger.h"

namespace logger {

namespace {

// The longest entry: a stamp, a blank, 4096 bytes of line and its newline.
constexpr int kLongestEntry = 24 + 4096 + 1;

int refuse(const std::string& message) {
    fprintf(stderr, "orvane-serial-logger: %s\nTry 'orvane-serial-logger --help'.\n",
            message.c_str());
    return 2;
}

}  // namespace

int parseOptions(int argc, char** argv, Options* options) {
    orvane::ArgOption args("orvane-serial-logger",
                           "Writes every line a serial device sends to DIR/serial.log, stamped "
                           "with the\nlocal time to the millisecond, and rotates the log by "
                           "size. A UDP datagram\n'status' is answered with the count of lines "
                           "and the uptime.");
    args.addOption(0, "serial", "PATH", "serial device, e.g. /dev/ttyUSB0", "", true);
    args.addOption(0, "baud", "N", "serial speed", "115200");
    args.addOption(0, "dir", "DIR", "directory of the log, created when missing", "", true);
    args.addOption(0, "max-bytes", "N", "largest size of a log file", "1048576");
    args.addOption(0, "keep", "N", "rotated files kept (serial.log.1 ... .N)", "5");
    args.addOption(0, "status", "HOST:PORT", "UDP address of the status (port 0: any)",
                   "127.0.0.1:5021");
    args.addOption(0, "run-for", "SECONDS", "quit by itself after this long (0: never)", "0");
    args.addFlag('v', "verbose", "debug lines on the console");
    if (!args.parse(argc, argv)) return refuse(args.error());
    if (args.helpRequested()) {
        fputs(args.helpText().c_str(), stdout);
        return 0;
    }
    int maxBytes = 0;
    if (!args.getInt("baud", &options->line.baud, 50, 4000000) ||
        !args.getInt("max-bytes", &maxBytes, kLongestEntry) ||
        !args.getInt("keep", &options->keep, 0, 1000) ||
        !args.getDouble("run-for", &options->runForS, 0, 1.0e9)) {
        return refuse(args.error());
    }
    options->maxBytes = maxBytes;
    std::string status = args.getString("status");
    size_t colon = status.rfind(':');
    char* end = nullptr;
    long port = colon == std::string::npos ? -1 : strtol(status.c_str() + colon + 1, &end, 10);
    if (colon == 0 || port < 0 || port > 65535 || end == status.c_str() + colon + 1 || *end) {
        return refuse("--status wants HOST:PORT, not '" + status + "'");
    }
    options->statusHost = status.substr(0, colon);
    options->statusPort = static_cast<unsigned short>(port);
    options->serialPath = args.getString("serial");
    options->dir = args.getString("dir");
    options->verbose = args.isSet("verbose");
    return -1;
}

}  // namespace logger
