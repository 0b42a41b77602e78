#pragma once

#include <functional>
#include <string>

namespace orvane {
namespace test {

// Stands in for a device driver in tests: while a spy lives, every ioctl()
// made in this process (the library's included) on a descriptor of the
// watched file goes to the handler instead of the kernel; other descriptors
// reach the real call. The file is matched by device and inode, so any
// descriptor opened on it is served. One spy at a time.
class IoctlSpy {
  public:
    using Handler = std::function<int(int fd, unsigned long request, void* arg)>;

    IoctlSpy(const std::string& path, Handler handler);
    ~IoctlSpy();
    IoctlSpy(const IoctlSpy&) = delete;
    IoctlSpy& operator=(const IoctlSpy&) = delete;

    // The kernel's ioctl, for handlers that pass a call on.
    static int realIoctl(int fd, unsigned long request, void* arg);
};

}  // namespace test
}  // namespace orvane
