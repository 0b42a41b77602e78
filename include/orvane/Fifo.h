#pragma once

#include <orvane/Export.h>
#include <orvane/IODevice.h>

#include <string>

namespace orvane {

// A named pipe (FIFO): one process writes, another reads, through a name in
// the file system.
//
//     Fifo::create("/run/app/cmd", 0620);
//     Fifo in;                                   // reader, e.g. in the daemon
//     in.open("/run/app/cmd", IO_READ);          // returns at once
//     int n = in.recvData(buf, sizeof buf, 500000);  // -2: nothing within 0.5 s
//
//     Fifo out;                                  // writer, e.g. a tool
//     if (out.open("/run/app/cmd", IO_WRITE, 1000000))   // waits up to 1 s for a reader
//         out.sendData("reload\n", 7, 100000);
//
// Opening never blocks without limit. A plain open(2) of a FIFO waits until
// the other side opens it, for ever if none comes. So both sides open with
// O_NONBLOCK: the read side returns at once, with or without a writer (its
// data calls then wait for data, with their timeouts); the write side fails
// with ENXIO while no reader has it open, and is retried, woken by inotify
// when someone opens the FIFO, until `timeoutUs` has passed. Opening both
// ends at once with O_RDWR (a trick that never blocks) is not offered: POSIX
// leaves it undefined, and a reader holding a write end never sees the end
// of the data when the real writers go.
//
// The descriptor stays non-blocking, so no data call blocks beyond its
// timeout: recvData/sendData wait up to timeoutUs (negative: without limit)
// for readiness, then make one read/write; they give the byte count, -1 on
// error and -2 on timeout, as every IODevice does. readData/writeData are
// the same with no limit. Results worth knowing:
// - A read may also give -2 when another reader took the data first.
// - recvData gives 0 once every writer has closed (end of data) and at once
//   on every later call, until a new writer opens the FIFO.
// - sendData to a FIFO whose readers have all gone gives -1 ("Broken pipe");
//   SIGPIPE is set to be ignored process-wide, as every socket send does,
//   so that this does not kill the process.
// - sendData may write fewer bytes than asked when the pipe (64 KiB by
//   default) is nearly full; writes of up to 4096 bytes (PIPE_BUF) are whole.
//
// Failures are logged once and reported by result. No locks: one thread at a
// time uses an object; the static operations are safe from any thread.
class ORVANE_API Fifo : public IODevice {
  public:
    Fifo();
    ~Fifo() override;

    // Creates the FIFO `path` with permission bits `mode` (subject to the
    // umask). An existing FIFO is success; any other existing entry fails.
    static bool create(const std::string& path, unsigned int mode = 0600);
    // Removes the FIFO `path`; refuses (false, logged) an entry that is not
    // a FIFO, and a missing one.
    static bool remove(const std::string& path);

    // Opens the read end (IO_READ) or the write end (IO_WRITE) of the FIFO
    // `name`; other modes and entries that are not FIFOs are refused. The
    // write end waits up to timeoutUs (negative: without limit) for a reader.
    bool open(const std::string& name, int mode, int timeoutUs);
    // open(name, mode, 0): the write end fails at once without a reader.
    bool open(const std::string& name, int mode) override;
    int readData(char* buf, int len) override;
    // One write(): the byte count or -1.
    int writeData(const char* data, int len) override;
    int recvData(char* buf, int len, int timeoutUs) override;
    // Waits up to timeoutUs until writable, then one write(): the byte count, -1 on error, -2 on
    // timeout.
    int sendData(const char* data, int len, int timeoutUs) override;
    // Nothing to write back in a pipe (IODevice's fsync is left out).
    void flush() override {}
    // getPos and setPos are IODevice's: -1, a pipe has no position.

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    int transfer(const char* method, char* buf, int len, bool forWrite, int timeoutUs);
};

}  // namespace orvane
