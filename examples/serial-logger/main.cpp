// orvane-serial-logger: logs the lines of a serial device (see SerialLogger.h).
//
//     orvane-serial-logger --serial /dev/ttyUSB0 --baud 9600 --dir /var/log/meter

#include <csignal>

#include "SerialLogger.h"

int main(int argc, char** argv) {
    logger::Options options;
    int status = logger::parseOptions(argc, argv, &options);
    if (status >= 0) return status;
    // A port opened by a process without a controlling terminal becomes its
    // terminal, and the device's departure would then end it with SIGHUP.
    std::signal(SIGHUP, SIG_IGN);

    orvane::Tracer& tracer = orvane::Tracer::getInstance();
    tracer.addSink(std::make_shared<orvane::STDSink>());
    if (options.verbose) tracer.setLevel(0);
    tracer.start();

    orvane::Application app;
    orvane::Application::registerInstance(&app);
    app.registerSignal(SIGINT, [&app] { app.quit(); });
    app.registerSignal(SIGTERM, [&app] { app.quit(); });
    auto logger = std::make_shared<logger::SerialLogger>(options);
    if (!app.addComponent("logger", logger) || !app.startup()) return 1;
    int result = app.exec();
    ORVANE_LOG_INFO("", "stopped, %llu lines written",
                    static_cast<unsigned long long>(logger->lines()));
    return result;
}
