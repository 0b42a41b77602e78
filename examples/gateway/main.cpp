// A small device program on orvane: an application with two components, a
// periodic job on the task queue, console logging, and a clean quit on
// SIGINT or SIGTERM. With --once it stops by itself after about two seconds.

#include <orvane/orvane.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>

namespace {

// Pretends to sample a sensor; the periodic job reads its last value.
class Sensor : public orvane::Component {
  public:
    bool onStart() override {
        orvane::Tracer::getInstance().print(1, "<C>sensor started");
        return true;
    }
    bool onStop() override {
        orvane::Tracer::getInstance().print(1, "<C>sensor stopped");
        return true;
    }
    int sample() { return ++samples_; }

  private:
    std::atomic<int> samples_{0};
};

// Pretends to forward readings upstream.
class Uplink : public orvane::Component {
  public:
    bool onStart() override {
        orvane::Tracer::getInstance().print(1, "<C>uplink connected");
        return true;
    }
    bool onStop() override {
        orvane::Tracer::getInstance().print(1, "<C>uplink closed");
        return true;
    }
    void send(int value) {
        orvane::Tracer::getInstance().print(1, "<C>uplink sent reading %d", value);
    }
};

class Gateway : public orvane::Application {
  public:
    std::atomic<bool> stopRequested{false};
};

}  // namespace

int main(int argc, char** argv) {
    bool once = argc > 1 && std::strcmp(argv[1], "--once") == 0;

    orvane::Tracer& tracer = orvane::Tracer::getInstance();
    tracer.addSink(std::make_shared<orvane::STDSink>());
    tracer.start();

    Gateway app;
    orvane::Application::registerInstance(&app);
    app.registerSignal(SIGINT, [&app] { app.stopRequested = true; });
    app.registerSignal(SIGTERM, [&app] { app.stopRequested = true; });

    auto sensor = std::make_shared<Sensor>();
    auto uplink = std::make_shared<Uplink>();
    if (!app.addComponent("sensor", sensor) || !app.addComponent("uplink", uplink)) return 1;
    if (!app.startup(2, orvane::SchedParam())) return 1;

    // The periodic job: every 500 ms a task samples the sensor and forwards
    // the value, on one of the task queue's workers.
    orvane::Rate period(2);
    orvane::Time started = orvane::Time::fromMono();
    while (!app.stopRequested) {
        app.addTask([sensor, uplink](const std::string&) { uplink->send(sensor->sample()); },
                    "poll");
        period.sleep();
        if (once && orvane::Time::usSinceMono(started) >= 2000000) break;
    }

    app.quit();
    tracer.print(1, "<C>gateway stopped cleanly");
    return 0;
}
