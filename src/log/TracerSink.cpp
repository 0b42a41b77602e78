#include <orvane/TracerSink.h>
#include <syslog.h>

#include <cstdio>

#include "log/Colour.h"

namespace orvane {

TracerSink::TracerSink() : name("TracerSink"), level(0) {}

TracerSink::~TracerSink() = default;

void TracerSink::onFlushed() {}

void TracerSink::onLevelChanged(int) {}

STDSink::STDSink() : className("STDSink") {}

void STDSink::sink(int lineLevel, const std::string& line) {
    if (static_cast<unsigned>(lineLevel) > 4) return;
    std::string text = detail::colouredLine(lineLevel, line);
    fwrite(text.data(), 1, text.size(), stdout);
    fflush(stdout);
}

SyslogSink::SyslogSink() : className("SyslogSink") {}

void SyslogSink::sink(int lineLevel, const std::string& line) {
    static const int priorities[] = {LOG_DEBUG, LOG_INFO, LOG_WARNING, LOG_ERR, LOG_DEBUG};
    if (static_cast<unsigned>(lineLevel) > 4) return;
    syslog(priorities[lineLevel], "%s", line.c_str());
}

}  // namespace orvane
