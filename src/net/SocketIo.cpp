#include "net/SocketIo.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include "log/LogLine.h"

namespace orvane {
namespace detail {

bool checkTransfer(const std::string& className, const char* method, const void* buf, int len,
                   int fd) {
    if (buf == nullptr || len < 1) {
        ORVANE_ERROR_IN(method, "param error.");
        return false;
    }
    if (fd < 0) {
        ORVANE_ERROR_IN(method, "socket not open.");
        return false;
    }
    return true;
}

int awaitFd(const std::string& className, const char* method, int fd, bool forWrite, int timeoutUs,
            bool fullStop) {
    int err = 0;
    switch (waitFd(fd, forWrite, timeoutUs, &err)) {
        case WAIT_READY:
            return 1;
        case WAIT_TIMEOUT:
            return -2;
        case WAIT_ERROR:
            ORVANE_ERROR_IN(method, "select error:%s%s", strerror(err), fullStop ? "." : "");
            return -1;
        case WAIT_NOT_SET:
            break;
    }
    ORVANE_ERROR_IN(method, "%s%s", forWrite ? "writefds error" : "readfds error",
                    fullStop ? "." : "");
    return -1;
}

void ignoreSigpipe() { signal(SIGPIPE, SIG_IGN); }

}  // namespace detail
}  // namespace orvane
