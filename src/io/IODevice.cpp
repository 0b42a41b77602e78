#include <errno.h>
#include <fcntl.h>
#include <orvane/IODevice.h>
#include <string.h>
#include <unistd.h>

#include <cinttypes>

#include "io/Position.h"
#include "io/WaitFd.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

// open() flags of each IOMode; -1 marks a mode IODevice refuses.
constexpr int kOpenFlags[8] = {
    O_RDONLY,                     // IO_READ
    O_WRONLY,                     // IO_WRITE
    O_RDWR,                       // IO_READ_WRITE
    O_RDWR | O_APPEND,            // IO_APPEND
    O_RDWR | O_CREAT | O_TRUNC,   // IO_TRUNCATE
    O_RDWR | O_CREAT,             // IO_CREATE
    O_RDWR | O_CREAT | O_APPEND,  // IO_CREATE_APPEND
    -1,                           // IO_APPEND_READ
};

}  // namespace

IODevice::IODevice() : className("IODevice"), ioMode(-1), directIO(false), wmSize(0), wmFill(0) {}

IODevice::~IODevice() {
    IODevice::close();
    // Descriptor 0 counts as not open: close() left it, and so does the destructor.
    fd_.release();
}

bool IODevice::open(const std::string& name, int mode) {
    if (name.empty() || static_cast<unsigned int>(mode) > 7) {
        ORVANE_ERROR("param error!");
        return false;
    }
    if (fd_.valid()) {
        ORVANE_ERROR("device is already opened!");
        return false;
    }
    int flags = kOpenFlags[mode];
    if (flags < 0) {
        ORVANE_ERROR("Unsupport IO Mode: %d!", mode);
        return false;
    }
    flags |= O_CLOEXEC;
    if (directIO) flags |= O_DIRECT;
    errno = 0;
    fd_.reset(::open(name.c_str(), flags, 0666));
    if (!fd_) {
        int err = errno;
        ORVANE_ERROR("open %s error: %s!", name.c_str(), strerror(err));
        return false;
    }
    devName = name;
    ioMode = mode;
    return true;
}

bool IODevice::close() {
    if (!fd_.isAbove(0)) return true;  // descriptor 0 counts as not open
    flush();
    fd_.reset();
    return true;
}

int IODevice::readData(char* buf, int len) {
    return transfer(__func__, "param error!", buf, len, false, false, 0);
}

int IODevice::writeData(const char* data, int len) {
    return transfer(__func__, "param error.", const_cast<char*>(data), len, true, false, 0);
}

int IODevice::recvData(char* buf, int len, int timeoutUs) {
    return transfer(__func__, "param error.", buf, len, false, true, timeoutUs);
}

int IODevice::sendData(const char* data, int len, int timeoutUs) {
    return transfer(__func__, "param error.", const_cast<char*>(data), len, true, true, timeoutUs);
}

// The checks and the one read()/write() shared by the four data calls; with
// `wait`, a readiness wait of timeoutUs first. Logs for `method`.
int IODevice::transfer(const char* method, const char* paramText, char* buf, int len, bool forWrite,
                       bool wait, int timeoutUs) {
    if (buf == nullptr || len < 1) {
        ORVANE_ERROR_IN(method, "%s", paramText);
        return -1;
    }
    if (!fd_) {
        ORVANE_ERROR_IN(method, "device not open.");
        return -1;
    }
    if (wait) {
        int ready = detail::awaitFd(className, method, fd_.get(), forWrite, timeoutUs,
                                    forWrite ? "writefds error" : "readfds error");
        if (ready < 0) return ready;
    }
    ssize_t n = forWrite ? ::write(fd_.get(), buf, static_cast<size_t>(len))
                         : ::read(fd_.get(), buf, static_cast<size_t>(len));
    return n < 0 ? -1 : static_cast<int>(n);
}

bool IODevice::setFlags(int flags) {
    int current = 0;
    if (!getFlags(&current)) return false;
    if (::fcntl(fd_.get(), F_SETFL, current | flags) == -1) {
        int err = errno;
        ORVANE_ERROR("set flags(0x%04x) error: %s!", static_cast<unsigned int>(flags),
                     strerror(err));
        return false;
    }
    return true;
}

bool IODevice::getFlags(int* flags) {
    if (flags == nullptr) return false;
    int current = ::fcntl(fd_.get(), F_GETFL);
    if (current == -1) {
        int err = errno;
        ORVANE_ERROR("get flags error: %s!", strerror(err));
        return false;
    }
    *flags = current;
    return true;
}

bool IODevice::reopen() {
    close();
    return open(devName, ioMode);
}

void IODevice::flush() {
    if (fd_.isAbove(0)) ::fsync(fd_.get());
}

long IODevice::getPos() {
    if (!isOpen()) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    off_t pos = ::lseek(fd_.get(), 0, SEEK_CUR);
    if (pos < 0) return -1;
    if (!detail::fitsLong(pos)) {
        ORVANE_ERROR("file(%s) position %" PRId64 " beyond long!", devName.c_str(),
                     static_cast<int64_t>(pos));
        return -1;
    }
    return static_cast<long>(pos);
}

long IODevice::setPos(long pos) {
    if (!isOpen()) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    off_t now = ::lseek(fd_.get(), static_cast<off_t>(pos), SEEK_SET);
    return now < 0 ? -1 : static_cast<long>(now);
}

bool IODevice::setIOBuffer(unsigned int size) {
    (void)size;
    ORVANE_WARN("not implement!");
    return false;
}

bool IODevice::setWMBuffer(unsigned int size) {
    if (isOpen()) {
        ORVANE_ERROR("cannot set after file is open!");
        return false;
    }
    if (wmSize != 0) {
        ORVANE_ERROR("mm buffer exists!");
        return false;
    }
    if ((size & 0xFFFu) != 0) {
        ORVANE_ERROR("size should be 4k aligned!");
        return false;
    }
    wmSize = size;
    return true;
}

}  // namespace orvane
