#include <errno.h>
#include <fcntl.h>
#include <orvane/Fifo.h>
#include <orvane/Time.h>
#include <orvane/UniqueFd.h>
#include <poll.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "io/WaitFd.h"
#include "log/LogLine.h"
#include "net/SocketIo.h"

namespace orvane {

namespace {

// Longest pause between two tries of the write end: an open missed by
// inotify (or no inotify at all) delays the writer by at most this.
constexpr int kRetryMs = 50;

// Waits up to `waitMs` for an open of the watched FIFO (or just waits when
// there is no watch), then drops the events.
void awaitOpen(int notifyFd, int waitMs) {
    pollfd entry{notifyFd, POLLIN, 0};
    if (::poll(&entry, notifyFd >= 0 ? 1 : 0, waitMs) > 0) {
        char events[4096];
        while (::read(notifyFd, events, sizeof events) > 0) {
        }
    }
}

}  // namespace

Fifo::Fifo() : className("Fifo") {}

Fifo::~Fifo() { IODevice::close(); }

bool Fifo::create(const std::string& path, unsigned int mode) {
    if (path.empty()) {
        ORVANE_SERROR("fifo name is empty!");
        return false;
    }
    if (::mkfifo(path.c_str(), static_cast<mode_t>(mode & 07777)) == 0) return true;
    int err = errno;
    struct stat st;
    if (err == EEXIST && ::lstat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode)) return true;
    ORVANE_SERROR("mkfifo(%s) error: %s!", path.c_str(), strerror(err));
    return false;
}

bool Fifo::remove(const std::string& path) {
    struct stat st;
    if (path.empty()) {
        ORVANE_SERROR("fifo name is empty!");
        return false;
    }
    if (::lstat(path.c_str(), &st) != 0 || !S_ISFIFO(st.st_mode)) {
        ORVANE_SERROR("%s is not a fifo!", path.c_str());
        return false;
    }
    if (::unlink(path.c_str()) != 0) {
        int err = errno;
        ORVANE_SERROR("remove fifo(%s) error: %s!", path.c_str(), strerror(err));
        return false;
    }
    return true;
}

bool Fifo::open(const std::string& name, int mode) { return open(name, mode, 0); }

bool Fifo::open(const std::string& name, int mode, int timeoutUs) {
    if (name.empty()) {
        ORVANE_ERROR("fifo name is empty!");
        return false;
    }
    if (mode != IO_READ && mode != IO_WRITE) {
        ORVANE_ERROR("param error: a fifo opens for IO_READ or IO_WRITE, not %d!", mode);
        return false;
    }
    if (fd_.valid()) {
        ORVANE_ERROR("device is already opened!");
        return false;
    }
    struct stat st;
    if (::stat(name.c_str(), &st) != 0 || !S_ISFIFO(st.st_mode)) {
        ORVANE_ERROR("%s is not a fifo!", name.c_str());
        return false;
    }
    int flags = (mode == IO_READ ? O_RDONLY : O_WRONLY) | O_NONBLOCK | O_CLOEXEC;
    UniqueFd notify;
    if (mode == IO_WRITE && timeoutUs != 0) {
        notify.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        if (notify && ::inotify_add_watch(notify.get(), name.c_str(), IN_OPEN) < 0) notify.reset();
    }
    Time start = Time::fromMono();
    UniqueFd fd;
    for (;;) {
        fd.reset(::open(name.c_str(), flags));
        if (fd) break;
        int err = errno;
        int64_t leftUs = timeoutUs - Time::usSinceMono(start);
        if (err != ENXIO) {
            ORVANE_ERROR("open %s error: %s!", name.c_str(), strerror(err));
            return false;
        }
        if (timeoutUs >= 0 && leftUs <= 0) {
            ORVANE_ERROR("no reader opened %s within %d us!", name.c_str(), timeoutUs);
            return false;
        }
        int waitMs = timeoutUs < 0
                         ? kRetryMs
                         : static_cast<int>(std::min<int64_t>(kRetryMs, leftUs / 1000 + 1));
        awaitOpen(notify.get(), waitMs);
    }
    fd_ = std::move(fd);
    devName = name;
    ioMode = mode;
    return true;
}

int Fifo::readData(char* buf, int len) { return transfer(__func__, buf, len, false, -1); }

int Fifo::writeData(const char* data, int len) {
    return transfer(__func__, const_cast<char*>(data), len, true, -1);
}

int Fifo::recvData(char* buf, int len, int timeoutUs) {
    return transfer(__func__, buf, len, false, timeoutUs);
}

int Fifo::sendData(const char* data, int len, int timeoutUs) {
    return transfer(__func__, const_cast<char*>(data), len, true, timeoutUs);
}

// The data calls: checks, a readiness wait of timeoutUs, one read/write.
int Fifo::transfer(const char* method, char* buf, int len, bool forWrite, int timeoutUs) {
    if (buf == nullptr || len < 1) {
        ORVANE_ERROR_IN(method, "param error.");
        return -1;
    }
    if (!fd_.valid()) {
        ORVANE_ERROR_IN(method, "device not open.");
        return -1;
    }
    if (forWrite) detail::ignoreSigpipe();
    int ready = detail::awaitFd(className, method, fd_.get(), forWrite, timeoutUs,
                                forWrite ? "writefds error" : "readfds error");
    if (ready < 0) return ready;
    ssize_t n = forWrite ? ::write(fd_.get(), buf, static_cast<size_t>(len))
                         : ::read(fd_.get(), buf, static_cast<size_t>(len));
    if (n >= 0) return static_cast<int>(n);
    int err = errno;
    // Another reader took the data (or filled the pipe) first: nothing now.
    if (err == EAGAIN) return -2;
    ORVANE_ERROR_IN(method, "fifo(%s) %s error: %s!", devName.c_str(), forWrite ? "write" : "read",
                    strerror(err));
    return -1;
}

}  // namespace orvane
