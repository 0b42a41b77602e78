#pragma once

#include <string>

#include "io/WaitFd.h"

// Steps shared by the data calls of every socket class. Each takes the
// calling class's name and method, so its log lines carry the tag of the
// class that defines the calling operation.

namespace orvane {
namespace detail {

// "param error." when `buf` is null or len < 1, then "socket not open."
// when fd is negative; false after logging either.
bool checkTransfer(const std::string& className, const char* method, const void* buf, int len,
                   int fd);

// waitFd with the failure lines of a data call: "select error:%s" and
// "readfds error" / "writefds error", each with a final full stop when
// `fullStop` is set. Returns 1 when ready, -2 on timeout, -1 on an error.
int awaitFd(const std::string& className, const char* method, int fd, bool forWrite, int timeoutUs,
            bool fullStop);

// Sets SIGPIPE to ignored for the whole process; done before every send.
void ignoreSigpipe();

}  // namespace detail
}  // namespace orvane
