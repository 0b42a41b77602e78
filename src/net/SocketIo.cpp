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

void ignoreSigpipe() { signal(SIGPIPE, SIG_IGN); }

}  // namespace detail
}  // namespace orvane
