#pragma once

#include <errno.h>
#include <unistd.h>

namespace orvane {

// The one owner of a file descriptor: every class of the library that holds
// a descriptor (files, devices, sockets, epoll, timerfd, eventfd, message
// queues, shared memory) keeps it in a UniqueFd, and so may a program.
//
//     UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
//     if (!fd) { ... }              // -1 from open: nothing is owned
//     ::read(fd.get(), buf, n);
//     int raw = fd.release();       // hand it on; fd owns nothing now
//
// Move-only; closes what it owns when destroyed or reset, and never closes
// the same descriptor twice. "None" is -1 (kNone); any negative value is
// stored as none. Descriptor 0 is an ordinary descriptor here: a class that
// treats 0 as "not open" says so at its own call site (see isAbove()).
// reset() and the destructor leave errno as it was, so a failed open can be
// stored first and its errno read after: `fd.reset(::open(...)); if (!fd) {
// int err = errno; ... }`. close() is the call that reports close()'s error.
// Not thread-safe: one owner object belongs to one thread at a time, as the
// object that holds it does. Costs one int and no allocation.
class UniqueFd {
  public:
    // The value held when no descriptor is owned.
    static constexpr int kNone = -1;

    UniqueFd() noexcept = default;
    // Takes `fd` over; a negative value owns nothing.
    explicit UniqueFd(int fd) noexcept : fd_(fd < 0 ? kNone : fd) {}
    ~UniqueFd() { reset(); }

    // Takes the descriptor of `other`, which then owns nothing.
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    // Closes the owned descriptor and takes the one of `other`.
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    // The descriptor, or -1 when none is owned. Ownership stays here.
    int get() const noexcept { return fd_; }
    // True when a descriptor is owned (0 included).
    bool valid() const noexcept { return fd_ >= 0; }
    // valid().
    explicit operator bool() const noexcept { return valid(); }
    // True when a descriptor above `floor` is owned: isAbove(0) is the test
    // of the classes that take descriptor 0 as "not open".
    bool isAbove(int floor) const noexcept { return fd_ > floor; }

    // Gives the descriptor up without closing it; this owner is empty after.
    int release() noexcept {
        int fd = fd_;
        fd_ = kNone;
        return fd;
    }

    // Closes the owned descriptor (if any) and takes `fd` instead. Taking the
    // descriptor already owned keeps it open. errno is left as it was.
    void reset(int fd = kNone) noexcept {
        if (fd < 0) fd = kNone;
        if (fd_ >= 0 && fd_ != fd) {
            int err = errno;
            ::close(fd_);
            errno = err;
        }
        fd_ = fd;
    }

    // Closes the owned descriptor and reports close()'s result: 0, or -1 with
    // errno set (the descriptor is released either way, as close(2) leaves
    // it). 0 when nothing was owned.
    int close() noexcept { return fd_ >= 0 ? ::close(release()) : 0; }

  private:
    int fd_ = kNone;
};

}  // namespace orvane
