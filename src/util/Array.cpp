#include <orvane/Array.h>

#include <cstdarg>
#include <cstdio>

#include "log/LogLine.h"

namespace orvane {
namespace detail {

void logRefusal(const char* className, const char* op, const char* fmt, ...) {
    char text[256];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    if (className == nullptr) {
        ORVANE_SERROR_IN(op, "%s", text);
    } else {
        ORVANE_LOG_AS(3, "E", className, op, "%s", text);
    }
}

}  // namespace detail
}  // namespace orvane
