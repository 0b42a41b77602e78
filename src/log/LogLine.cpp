#include "log/LogLine.h"

#include <cstdio>
#include <ctime>

#include "base/DateTimeText.h"

namespace orvane {
namespace detail {

const char* logTime() {
    // localtime_r and the formatting cost far more than a log line's other
    // work; the text changes once a second, so each thread keeps its own.
    thread_local time_t cachedSecond = -1;
    thread_local char text[64];
    time_t now = time(nullptr);
    if (now != cachedSecond) {
        tm local{};
        localtime_r(&now, &local);
        snprintf(text, sizeof text, ORVANE_DATE_TIME_FORMAT, local.tm_year + 1900, local.tm_mon + 1,
                 local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
        cachedSecond = now;
    }
    return text;
}

}  // namespace detail
}  // namespace orvane
