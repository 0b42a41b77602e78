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

// Sets SIGPIPE to ignored for the whole process; done before every send.
void ignoreSigpipe();

}  // namespace detail
}  // namespace orvane
