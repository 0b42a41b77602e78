#pragma once

// The one way the library writes a log line. Every macro checks the level
// first (a filtered line costs one atomic load; its arguments are not even
// evaluated), then supplies the tag, the date-time string, the class name
// (`className` of the calling class), the method name and the source line:
//
//     ORVANE_ERROR("invalid worker nums: %d", workers);
//         -> "<E>2024-03-05 07:08:09 [AsyncTaskQueue::init,L42] invalid worker nums: 0"
//
// Member operations:
//   ORVANE_ERROR / ORVANE_WARN   "[%s::%s,L%d]"  error and warning lines
//   ORVANE_NOTE                  "[%s::%s]"      info lines, without a line number
// Static operations and free functions:
//   ORVANE_SERROR                "[%s,L%d]"      error lines
//   ORVANE_SWARN_IN              "[%s,L%d]"      warning lines, method named
// ORVANE_ERROR_IN, ORVANE_NOTE_IN and ORVANE_SERROR_IN take the method name
// first, for constructors, lambdas and helpers whose line names another
// operation than the calling one (`__func__` there is not the name to print).
//
// The compiler checks the format against the arguments. Read errno into a
// local right after the failing call and pass that local: building the line
// may change errno.

#include <orvane/Tracer.h>

namespace orvane {
namespace detail {

// The current local time as "%d-%02d-%02d %02d:%02d:%02d", the same text as
// DateTime::getDateTime().toString(). Cached per thread and rebuilt only when
// the second changes. The pointer stays valid until the thread's next call.
const char* logTime();

}  // namespace detail
}  // namespace orvane

#define ORVANE_LOG_LINE_(lvl, tag, header, ...)                                          \
    do {                                                                                 \
        (void)sizeof(::orvane::checkLogFormat("<" tag ">%s " header, "", __VA_ARGS__));  \
        ::orvane::Tracer& orvaneTracer_ = ::orvane::tracer();                            \
        if (orvaneTracer_.enabled(lvl)) {                                                \
            orvaneTracer_.print(lvl, "<" tag ">%s " header, ::orvane::detail::logTime(), \
                                __VA_ARGS__);                                            \
        }                                                                                \
    } while (0)

#define ORVANE_ERROR_IN(method, fmt, ...)                                              \
    ORVANE_LOG_LINE_(3, "E", "[%s::%s,L%d] " fmt, className.c_str(), method, __LINE__, \
                     ##__VA_ARGS__)
#define ORVANE_NOTE_IN(method, fmt, ...) \
    ORVANE_LOG_LINE_(1, "I", "[%s::%s] " fmt, className.c_str(), method, ##__VA_ARGS__)
#define ORVANE_SERROR_IN(method, fmt, ...) \
    ORVANE_LOG_LINE_(3, "E", "[%s,L%d] " fmt, method, __LINE__, ##__VA_ARGS__)
#define ORVANE_SWARN_IN(method, fmt, ...) \
    ORVANE_LOG_LINE_(2, "W", "[%s,L%d] " fmt, method, __LINE__, ##__VA_ARGS__)

#define ORVANE_ERROR(fmt, ...) ORVANE_ERROR_IN(__func__, fmt, ##__VA_ARGS__)
#define ORVANE_WARN(fmt, ...)                                                            \
    ORVANE_LOG_LINE_(2, "W", "[%s::%s,L%d] " fmt, className.c_str(), __func__, __LINE__, \
                     ##__VA_ARGS__)
#define ORVANE_NOTE(fmt, ...) ORVANE_NOTE_IN(__func__, fmt, ##__VA_ARGS__)
#define ORVANE_SERROR(fmt, ...) ORVANE_SERROR_IN(__func__, fmt, ##__VA_ARGS__)
