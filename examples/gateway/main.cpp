// orvane-gateway: serves a serial device to TCP clients (see Gateway.h).
//
//     orvane-gateway                                   simulated device, 127.0.0.1:5020
//     orvane-gateway --serial /dev/ttyUSB0 --baud 9600 --parity even

#include <condition_variable>
#include <csignal>
#include <mutex>

#include "Gateway.h"

namespace {

// The application, with a stop request that signal callbacks raise and the
// main thread waits for.
class GatewayApp : public orvane::Application {
  public:
    void requestStop() {
        std::lock_guard<std::mutex> lock(mutex);
        stopRequested = true;
        changed.notify_all();
    }
    // Waits until a stop was requested or `seconds` (0: no limit) passed.
    void waitForStop(double seconds) {
        std::unique_lock<std::mutex> lock(mutex);
        auto requested = [this] { return stopRequested; };
        if (seconds <= 0) {
            changed.wait(lock, requested);
        } else {
            changed.wait_for(lock, std::chrono::duration<double>(seconds), requested);
        }
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    bool stopRequested = false;
};

void startLog(const gateway::Options& options) {
    orvane::Tracer& tracer = orvane::Tracer::getInstance();
    tracer.addSink(std::make_shared<orvane::STDSink>());
    if (!options.logUdpHost.empty()) {
        tracer.addSink(std::make_shared<orvane::UDPSink>(options.logUdpHost, options.logUdpPort));
    }
    if (options.syslog) tracer.addSink(std::make_shared<orvane::SyslogSink>());
    if (options.verbose) tracer.setLevel(0);
    tracer.start();
}

}  // namespace

int main(int argc, char** argv) {
    gateway::Options options;
    int status = gateway::parseOptions(argc, argv, &options);
    if (status >= 0) return status;
    std::signal(SIGPIPE, SIG_IGN);  // a client that vanished is an error result, not a signal
    startLog(options);

    GatewayApp app;
    orvane::Application::registerInstance(&app);
    app.registerSignal(SIGINT, [&app] { app.requestStop(); });
    app.registerSignal(SIGTERM, [&app] { app.requestStop(); });

    gateway::Stats stats;
    auto serial = std::make_shared<gateway::SerialSide>(options, stats);
    auto network = std::make_shared<gateway::NetworkSide>(options, stats, serial);
    auto status_ = std::make_shared<gateway::StatusSide>(options, stats, network->loop());
    std::weak_ptr<gateway::NetworkSide> answerTo = network;  // no cycle between the sides
    serial->setReply([answerTo](uint64_t client, const std::string& payload) {
        if (auto side = answerTo.lock()) side->reply(client, payload);
    });
    // Started and stopped in this order: the line is open before the first
    // client is accepted, and no request is on it when the clients go.
    if (!app.addComponent("serial", serial) || !app.addComponent("network", network) ||
        !app.addComponent("status", status_) || !app.startup(2, orvane::SchedParam())) {
        ORVANE_LOG_ERROR("Gateway", "gateway failed to start");
        return 1;
    }
    ORVANE_LOG_INFO("Gateway", "gateway listening on %s:%u, device %s", options.listenHost.c_str(),
                    network->port(),
                    options.serialPath.empty() ? "simulated" : options.serialPath.c_str());

    app.waitForStop(options.runForS);
    app.quit();
    ORVANE_LOG_INFO("Gateway", "gateway stopped");
    return 0;
}
