// orvane-gateway-client: sends requests to orvane-gateway and prints the answers.
//
//     orvane-gateway-client 127.0.0.1:5020 0148656c6c6f 02 07
//     > 01 48 65 6C 6C 6F
//     < 01 48 65 6C 6C 6F
//     ...
//
// Each HEX argument is one request payload (blanks and colons allowed
// between bytes). Exit status 0 when every request got an answer that is not
// an error frame (0xFF and a code), 1 otherwise, 2 for a bad command line.

#include <orvane/orvane.h>

#include <cctype>
#include <cstdio>
#include <string>

namespace {

bool parseHex(const std::string& text, std::string* bytes) {
    std::string digits;
    for (char c : text) {
        if (isxdigit(static_cast<unsigned char>(c))) {
            digits += c;
        } else if (c != ' ' && c != ':') {
            return false;
        }
    }
    if (digits.empty() || digits.size() % 2 != 0) return false;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes->push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return true;
}

int usage(const std::string& message) {
    fprintf(stderr, "orvane-gateway-client: %s\nTry 'orvane-gateway-client --help'.\n",
            message.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    orvane::ArgOption args("orvane-gateway-client",
                           "Sends each HEX payload as one AnyPacket frame to orvane-gateway and "
                           "prints\nthe payload of its answer.");
    args.addOption(0, "timeout", "MS", "how long to wait for each answer", "3000");
    args.addPositional("HOST:PORT", "the gateway's address");
    args.addPositional("HEX...", "request payloads, e.g. 0102 or \"01 02\"");
    int timeoutMs = 0;
    if (!args.parse(argc, argv)) return usage(args.error());
    if (args.helpRequested()) {
        fputs(args.helpText().c_str(), stdout);
        return 0;
    }
    if (!args.getInt("timeout", &timeoutMs, 1, 600000)) return usage(args.error());
    std::string address = args.getPositional("HOST:PORT");
    size_t colon = address.rfind(':');
    if (colon == std::string::npos) return usage("HOST:PORT wanted, not '" + address + "'");
    std::vector<std::string> payloads;
    for (size_t i = 1; i < args.positionals().size(); ++i) {
        std::string bytes;
        if (!parseHex(args.positionals()[i], &bytes)) {
            return usage("not hexadecimal bytes: '" + args.positionals()[i] + "'");
        }
        payloads.push_back(bytes);
    }

    orvane::TcpSocket socket;
    if (!socket.open("", 0) ||
        !socket.setConnection(address.substr(0, colon),
                              static_cast<unsigned short>(std::stoi(address.substr(colon + 1))))) {
        fprintf(stderr, "orvane-gateway-client: cannot connect to %s\n", address.c_str());
        return 1;
    }
    orvane::AnyPacket::Frame codec;
    orvane::AnyPacket parser;
    int failures = 0;
    for (const std::string& payload : payloads) {
        std::string frame = codec.encode(payload);
        printf("> %s\n", orvane::StrUtil::hexView(payload).c_str());
        if (socket.writeData(frame.data(), int(frame.size())) != int(frame.size())) {
            fprintf(stderr, "orvane-gateway-client: send failed\n");
            return 1;
        }
        std::string answer;
        orvane::Time sent = orvane::Time::fromMono();
        while (answer.empty()) {
            int64_t leftUs = int64_t(timeoutMs) * 1000 - orvane::Time::usSinceMono(sent);
            char buf[1024];
            int n = leftUs > 0 ? socket.recvData(buf, sizeof buf, int(leftUs)) : -2;
            if (n <= 0) break;
            for (const std::string& got : parser.parse(std::string(buf, size_t(n)))) {
                if (answer.empty()) answer = codec.decode(got);
            }
        }
        if (answer.empty()) {
            printf("< (no answer)\n");
            ++failures;
            continue;
        }
        printf("< %s", orvane::StrUtil::hexView(answer).c_str());
        if (answer.size() == 2 && static_cast<unsigned char>(answer[0]) == 0xFF) {
            static const char* const kErrors[] = {
                "", "device did not answer", "device answer did not decode",
                "device does not know the command", "serial write failed"};
            unsigned code = static_cast<unsigned char>(answer[1]);
            printf(" (error: %s)", code >= 1 && code <= 4 ? kErrors[code] : "unknown");
            ++failures;
        } else if (answer.size() > 1 && answer[0] == 0x02) {
            printf(" \"%s\"", answer.substr(1).c_str());
        }
        printf("\n");
        fflush(stdout);
    }
    return failures == 0 ? 0 : 1;
}
