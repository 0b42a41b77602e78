#pragma once

// The one way the library writes a log line. Every macro checks the level
// first (a filtered line costs one atomic load and formats nothing), then
// supplies the tag, the date-time string, the class name (`className` of the
// calling class), the method name and the source line:
//
//     ORVANE_ERROR("invalid worker nums: %d", workers);
//         -> "<E>2024-03-05 07:08:09 [AsyncTaskQueue::init,L42] invalid worker nums: 0"
//
// Forms:
//   ORVANE_ERROR / ORVANE_WARN / ORVANE_INFO   "[%s::%s,L%d]"  member operations
//   ORVANE_NOTE                                "[%s::%s]"      info lines without a line number
//   ORVANE_SERROR / ORVANE_SWARN / ORVANE_SINFO "[%s,L%d]"     static operations
//   ..._IN(method, ...)                         the same with an explicit method name, for
//                                               constructors, lambdas and lines that name
//                                               another operation than the calling one
//   ORVANE_LOG_AS(level, tag, cls, method, ...) "[%s::%s,L%d]" with an explicit class name
//
// Read errno into a local right after the failing call and pass that local:
// building the line may change errno.

#include <orvane/Export.h>
#include <orvane/Tracer.h>

namespace orvane {
namespace detail {

// The current local time as "%d-%02d-%02d %02d:%02d:%02d", the same text as
// DateTime::getDateTime().toString(). Cached per thread and rebuilt only when
// the second changes. The pointer stays valid until the thread's next call.
ORVANE_API const char* logTime();

}  // namespace detail
}  // namespace orvane

#define ORVANE_LOG_LINE_(lvl, tag, header, ...)                                          \
    do {                                                                                 \
        ::orvane::Tracer& orvaneTracer_ = ::orvane::Tracer::getInstance();               \
        if (orvaneTracer_.enabled(lvl)) {                                                \
            orvaneTracer_.print(lvl, "<" tag ">%s " header, ::orvane::detail::logTime(), \
                                __VA_ARGS__);                                            \
        }                                                                                \
    } while (0)

#define ORVANE_LOG_AS(lvl, tag, cls, method, fmt, ...) \
    ORVANE_LOG_LINE_(lvl, tag, "[%s::%s,L%d] " fmt, cls, method, __LINE__, ##__VA_ARGS__)

#define ORVANE_ERROR_IN(method, fmt, ...) \
    ORVANE_LOG_AS(3, "E", className.c_str(), method, fmt, ##__VA_ARGS__)
#define ORVANE_WARN_IN(method, fmt, ...) \
    ORVANE_LOG_AS(2, "W", className.c_str(), method, fmt, ##__VA_ARGS__)
#define ORVANE_INFO_IN(method, fmt, ...) \
    ORVANE_LOG_AS(1, "I", className.c_str(), method, fmt, ##__VA_ARGS__)
#define ORVANE_NOTE_IN(method, fmt, ...) \
    ORVANE_LOG_LINE_(1, "I", "[%s::%s] " fmt, className.c_str(), method, ##__VA_ARGS__)

#define ORVANE_ERROR(fmt, ...) ORVANE_ERROR_IN(__func__, fmt, ##__VA_ARGS__)
#define ORVANE_WARN(fmt, ...) ORVANE_WARN_IN(__func__, fmt, ##__VA_ARGS__)
#define ORVANE_INFO(fmt, ...) ORVANE_INFO_IN(__func__, fmt, ##__VA_ARGS__)
#define ORVANE_NOTE(fmt, ...) ORVANE_NOTE_IN(__func__, fmt, ##__VA_ARGS__)

#define ORVANE_SERROR_IN(method, fmt, ...) \
    ORVANE_LOG_LINE_(3, "E", "[%s,L%d] " fmt, method, __LINE__, ##__VA_ARGS__)
#define ORVANE_SWARN_IN(method, fmt, ...) \
    ORVANE_LOG_LINE_(2, "W", "[%s,L%d] " fmt, method, __LINE__, ##__VA_ARGS__)
#define ORVANE_SINFO_IN(method, fmt, ...) \
    ORVANE_LOG_LINE_(1, "I", "[%s,L%d] " fmt, method, __LINE__, ##__VA_ARGS__)

#define ORVANE_SERROR(fmt, ...) ORVANE_SERROR_IN(__func__, fmt, ##__VA_ARGS__)
#define ORVANE_SWARN(fmt, ...) ORVANE_SWARN_IN(__func__, fmt, ##__VA_ARGS__)
#define ORVANE_SINFO(fmt, ...) ORVANE_SINFO_IN(__func__, fmt, ##__VA_ARGS__)
