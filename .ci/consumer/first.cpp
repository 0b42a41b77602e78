// A first device program as a user writes it against the installed headers:
// its own log lines, a UDP status server stopped from outside, lines taken
// from a buffer, and a main that waits for SIGTERM without polling.
#include <orvane/orvane.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

namespace {

std::atomic<int> lines{0};

class Status : public orvane::UdpServer {
  public:
    bool dataReceived(orvane::UdpSocket& peer, const char* data, int len) override {
        std::string answer = std::string(data, static_cast<size_t>(len)) == "status"
                                 ? "lines=" + std::to_string(lines.load())
                                 : "error";
        peer.writeData(answer.data(), static_cast<int>(answer.size()));
        return true;
    }
};

}  // namespace

int main() {
    orvane::Tracer::getInstance().addSink(std::make_shared<orvane::STDSink>());
    orvane::Tracer::getInstance().start();

    orvane::LineBuffer buffer;
    buffer.init(64);
    char input[] = "first\r\nsecond\r\npart";
    buffer.putData(input, sizeof input - 1);
    std::string line;
    while (buffer.takeLine(&line)) {
        ORVANE_LOG_INFO("First", "%s %s", orvane::DateTime::getDateTime().toString(true).c_str(),
                        line.c_str());
        ++lines;
    }

    Status status;
    orvane::Thread statusThread("status");
    if (!status.setup("127.0.0.1", 0) || !statusThread.start(status)) return 1;

    orvane::Application app;
    app.registerSignal(SIGTERM, [&app] { app.quit(); });
    if (!app.startup()) return 1;
    app.addTask([](const std::string&) { kill(getpid(), SIGTERM); }, "stop");
    int result = app.exec();

    status.quit();
    bool stopped = statusThread.stop(1000);
    ORVANE_LOG_INFO("First", "%d lines, exec %d, server stopped %d", lines.load(), result,
                    stopped);
    return lines == 2 && result == 0 && stopped ? 0 : 1;
}
