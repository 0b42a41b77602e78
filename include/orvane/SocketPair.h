#pragma once

#include <orvane/Export.h>
#include <orvane/UniqueFd.h>

#include <string>

namespace orvane {

// A connected pair of local (Unix-domain) sockets, stream or datagram, for
// talk between two threads or between a process and its forked child. Each
// end is named by its number, 0 or 1; what is written to one end is read
// from the other. The data calls of an end keep the conventions of Socket:
// a byte count, -1 on an error (logged once; EAGAIN is never logged) and -2
// when the wait of recvData/sendData/peekData (microseconds, negative waits
// without limit) runs out. Both descriptors are close-on-exec.
//
//     SocketPair pair;
//     if (!pair.open(SocketPair::STREAM)) return false;
//     pid_t child = fork();
//     if (child == 0) { pair.closeEnd(0); pair.sendData(1, "hi", 2, -1); _exit(0); }
//     pair.closeEnd(1);
//     char buf[8];
//     int n = pair.recvData(0, buf, sizeof buf, 1000000);  // 2, or -2 after 1 s
//
// For a child started with exec, shareEnd(1) clears close-on-exec on end 1
// and gives its number to pass on the command line; the parent closes that
// end after spawning. releaseEnd hands an end's descriptor to another owner.
// Threads: the two ends may be used by two threads at once (one end each);
// open, close, closeEnd, shareEnd and releaseEnd belong to the thread that
// owns the pair. Every send ignores SIGPIPE process-wide, as Socket does.
// Costs: two descriptors; no thread, no buffer of its own.
class ORVANE_API SocketPair {
  public:
    // STREAM: a byte stream (SOCK_STREAM); DATAGRAM: whole messages (SOCK_DGRAM).
    enum Type { STREAM = 0, DATAGRAM = 1 };

    SocketPair();
    ~SocketPair();
    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    // Creates both ends; STREAM keeps byte order without boundaries, DATAGRAM
    // keeps message boundaries and never reorders. False for another type or
    // when the kernel refuses; an open pair is closed first.
    bool open(int type = STREAM);
    // Closes both ends; true (also when nothing was open).
    bool close();
    // Closes one end, the one the other party uses after a fork. False for a
    // bad end number or an end already closed.
    bool closeEnd(int end);
    // Clears close-on-exec on one end so that a program started by exec
    // inherits it, and returns its descriptor number; the pair still owns
    // and closes it. -1 for a bad or closed end.
    int shareEnd(int end);
    // Gives one end's descriptor up (still close-on-exec); the caller closes
    // it. -1 for a bad or closed end.
    int releaseEnd(int end);

    // True when `end` (0 or 1) holds a descriptor.
    bool isOpen(int end) const;
    // The descriptor of `end`, or -1.
    int fd(int end) const;
    // The Type of the last successful open(); STREAM before any.
    int type() const { return type_; }

    // One read on `end`: the count, 0 at the peer's end of stream (stream
    // pairs), -1 on an error. Blocks while nothing is queued.
    int readData(int end, char* buf, int len);
    // Writes all `len` bytes on `end` (one datagram for DATAGRAM pairs); on
    // EAGAIN returns what was written so far.
    int writeData(int end, const char* data, int len);
    // Waits at most timeoutUs for data on `end`, then one receive.
    int recvData(int end, char* buf, int len, int timeoutUs);
    // recvData that leaves the data queued.
    int peekData(int end, char* buf, int len, int timeoutUs);
    // Waits at most timeoutUs until `end` can send, then one send.
    int sendData(int end, const char* data, int len, int timeoutUs);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // False after logging "bad end" unless end is 0 or 1.
    bool validEnd(int end, const char* method) const;
    // The descriptor of an open `end`, or -1 after logging why not.
    int openEnd(int end, const char* method) const;
    // The descriptor of `end` for a data call, or -1 after logging a bad
    // end, bad arguments ("param error.") or a closed end ("socket not open.").
    int transferFd(int end, const char* method, const void* buf, int len) const;

    UniqueFd ends[2];
    int type_;
};

}  // namespace orvane
