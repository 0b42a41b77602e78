#pragma once

#include <netinet/in.h>

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

// The rest of a stream socket's readData once its arguments are checked: one
// read; -1 silently for EAGAIN, -1 after "read error:%s" for any other
// failure, else the count (0 at the peer's end of stream).
int readOnce(const std::string& className, const char* method, int fd, char* buf, int len);

// The rest of a stream socket's writeData once its arguments are checked:
// ignore SIGPIPE, then write until all `len` bytes are out. A write that
// moves nothing gives 0, EAGAIN the count written so far (silently), any
// other failure -1 after "write error:%s"; else `len`.
int writeAll(const std::string& className, const char* method, int fd, const char* data, int len);

// The rest of a stream or CAN socket's receive once its arguments are
// checked: wait for readability, one recv (with MSG_PEEK when `peek`), and
// the results and lines of a data call ("socket <verb> error:%s" and 0 for
// an aborted connection, silence for EAGAIN, "sockfd(%d) <verb> error:%s"
// otherwise). The verb is "peek" or "read".
int receiveReady(const std::string& className, const char* method, int fd, char* buf, int len,
                 int timeoutUs, bool peek);

// The rest of a stream or CAN socket's send once its arguments are checked:
// wait for writability, ignore SIGPIPE, one send, "sockfd(%d) write error:%s"
// (never for EAGAIN).
int sendReady(const std::string& className, const char* method, int fd, const char* data, int len,
              int timeoutUs);

// The dotted form of an IPv4 address ("192.168.0.1").
std::string dotted(in_addr address);

// Sets SIGPIPE to ignored for the whole process; done before every send.
void ignoreSigpipe();

}  // namespace detail
}  // namespace orvane
