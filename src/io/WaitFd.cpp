#include "io/WaitFd.h"

#include <poll.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "log/LogLine.h"

namespace orvane {
namespace detail {

WaitResult waitFd(int fd, bool forWrite, int timeoutUs, int* err) {
    pollfd entry{fd, static_cast<short>(forWrite ? POLLOUT : POLLIN), 0};
    timespec limit{timeoutUs / 1000000, static_cast<long>(timeoutUs % 1000000) * 1000};
    int n = ppoll(&entry, 1, timeoutUs >= 0 ? &limit : nullptr, nullptr);
    if (n < 0) {
        *err = errno;
        return WAIT_ERROR;
    }
    if (n == 0) return WAIT_TIMEOUT;
    if ((entry.revents & POLLNVAL) != 0) {
        *err = EBADF;
        return WAIT_ERROR;
    }
    // The sets select() fills from the same poll bits.
    short readyBits = forWrite ? (POLLOUT | POLLERR) : (POLLIN | POLLHUP | POLLERR);
    return (entry.revents & readyBits) != 0 ? WAIT_READY : WAIT_NOT_SET;
}

int awaitFd(const std::string& className, const char* method, int fd, bool forWrite, int timeoutUs,
            const char* notSetText, const char* selectEnd) {
    int err = 0;
    switch (waitFd(fd, forWrite, timeoutUs, &err)) {
        case WAIT_READY:
            return 1;
        case WAIT_TIMEOUT:
            return -2;
        case WAIT_ERROR:
            ORVANE_ERROR_IN(method, "select error:%s%s", strerror(err), selectEnd);
            return -1;
        case WAIT_NOT_SET:
            break;
    }
    ORVANE_ERROR_IN(method, "%s", notSetText);
    return -1;
}

}  // namespace detail
}  // namespace orvane
