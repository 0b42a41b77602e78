#pragma once

#include <string>

// The readiness wait of every descriptor-backed class (files, serial ports,
// sockets): one descriptor, readable or writable, with select()'s meaning.

namespace orvane {
namespace detail {

// How a wait ended.
enum WaitResult { WAIT_READY = 1, WAIT_TIMEOUT = 0, WAIT_ERROR = -1, WAIT_NOT_SET = -3 };

// Waits until `fd` is readable (or writable), at most timeoutUs microseconds;
// a negative timeout waits without limit. Readiness is what select() reports:
// hang-up and error count as readable, error as writable. ppoll is used so
// that descriptors at or above FD_SETSIZE work too. WAIT_ERROR leaves the
// error number in *err (EBADF for a descriptor that is not open).
WaitResult waitFd(int fd, bool forWrite, int timeoutUs, int* err);

// waitFd with the failure lines of a data call, logged for `method` of
// `className`: "select error:%s" + selectEnd when the wait fails, and
// notSetText when the descriptor is not reported ready. Returns 1 when
// ready, -2 on timeout (silent), -1 after logging.
int awaitFd(const std::string& className, const char* method, int fd, bool forWrite, int timeoutUs,
            const char* notSetText, const char* selectEnd = "");

}  // namespace detail
}  // namespace orvane
