#include "io/WaitFd.h"

#include <poll.h>

#include <cerrno>
#include <ctime>

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

}  // namespace detail
}  // namespace orvane
