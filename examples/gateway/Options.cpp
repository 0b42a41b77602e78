#include <cstdio>
#include <cstdlib>

#include "Gateway.h"

namespace gateway {

std::string errorPayload(ErrorCode code) {
    return std::string{static_cast<char>(0xFF), static_cast<char>(code)};
}

bool splitHostPort(const std::string& text, std::string* host, unsigned short* port) {
    size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return false;
    char* end = nullptr;
    long number = strtol(text.c_str() + colon + 1, &end, 10);
    if (*end != '\0' || number < 0 || number > 65535) return false;
    *host = text.substr(0, colon);
    *port = static_cast<unsigned short>(number);
    return true;
}

namespace {

using Line = orvane::SerialPort::LineSettings;

int refuse(const std::string& message) {
    fprintf(stderr, "orvane-gateway: %s\nTry 'orvane-gateway --help'.\n", message.c_str());
    return 2;
}

}  // namespace

int parseOptions(int argc, char** argv, Options* options) {
    orvane::ArgOption args("orvane-gateway",
                           "Serves a serial device to TCP clients: each AnyPacket frame a client "
                           "sends\ngoes to the device, and the device's answer goes back to it. "
                           "Without --serial\nthe gateway plays the device itself on a "
                           "pseudo-terminal.");
    args.addOption(0, "listen", "HOST:PORT", "address to serve clients on (port 0: any)",
                   "127.0.0.1:5020");
    args.addOption(0, "serial", "PATH", "serial device, e.g. /dev/ttyUSB0 (default: simulated)");
    args.addOption(0, "baud", "N", "serial speed", "115200");
    args.addOption(0, "parity", "MODE", "serial parity", "none");
    args.setChoices("parity", {"none", "odd", "even"});
    args.addOption(0, "data-bits", "N", "data bits, 5 to 8", "8");
    args.addOption(0, "stop-bits", "N", "stop bits", "1");
    args.setChoices("stop-bits", {"1", "2"});
    args.addOption(0, "flow", "MODE", "flow control: none, hw (RTS/CTS), sw (XON/XOFF)", "none");
    args.setChoices("flow", {"none", "hw", "sw"});
    args.addFlag(0, "rs485", "switch the port to RS-485 mode");
    args.addOption(0, "timeout", "MS", "how long to wait for the device's answer", "1000");
    args.addOption(0, "log-udp", "HOST:PORT", "also send every log line to this UDP peer");
    args.addFlag(0, "syslog", "also log to syslog");
    args.addFlag('v', "verbose", "debug lines on the console");
    args.addOption(0, "max-clients", "N", "clients served at once; one more is closed at once",
                   "16");
    args.addOption(0, "idle-timeout", "SECONDS", "close a client silent for this long", "60");
    args.addOption(0, "status-interval", "SECONDS", "period of the status line (0: none)", "10");
    args.addOption(0, "run-for", "SECONDS", "quit by itself after this long (0: never)", "0");
    if (!args.parse(argc, argv)) return refuse(args.error());
    if (args.helpRequested()) {
        fputs(args.helpText().c_str(), stdout);
        return 0;
    }
    Line& line = options->line;
    int timeout = 0, stopBits = 0, maxClients = 0;
    if (!args.getInt("baud", &line.baud, 50, 4000000) ||
        !args.getInt("data-bits", &line.dataBits, 5, 8) ||
        !args.getInt("stop-bits", &stopBits, 1, 2) ||
        !args.getInt("timeout", &timeout, 1, 600000) ||
        !args.getInt("max-clients", &maxClients, 1, 100000) ||
        !args.getDouble("idle-timeout", &options->idleTimeoutS, 0.001, 1.0e6) ||
        !args.getDouble("status-interval", &options->statusIntervalS, 0, 1.0e6) ||
        !args.getDouble("run-for", &options->runForS, 0, 1.0e9)) {
        return refuse(args.error());
    }
    line.stopBits = stopBits;
    options->timeoutMs = timeout;
    options->maxClients = maxClients;
    std::string parity = args.getString("parity"), flow = args.getString("flow");
    line.parity = parity == "odd"    ? Line::Parity::Odd
                  : parity == "even" ? Line::Parity::Even
                                     : Line::Parity::None;
    line.flow = flow == "hw"   ? Line::Flow::Hardware
                : flow == "sw" ? Line::Flow::Software
                               : Line::Flow::None;
    if (!splitHostPort(args.getString("listen"), &options->listenHost, &options->listenPort)) {
        return refuse("--listen wants HOST:PORT, not '" + args.getString("listen") + "'");
    }
    if (args.isSet("log-udp") &&
        !splitHostPort(args.getString("log-udp"), &options->logUdpHost, &options->logUdpPort)) {
        return refuse("--log-udp wants HOST:PORT, not '" + args.getString("log-udp") + "'");
    }
    options->serialPath = args.getString("serial");
    options->rs485 = args.isSet("rs485");
    options->syslog = args.isSet("syslog");
    options->verbose = args.isSet("verbose");
    return -1;
}

}  // namespace gateway
