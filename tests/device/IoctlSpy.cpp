#include "IoctlSpy.h"

#include <dlfcn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstdarg>
#include <mutex>

namespace orvane {
namespace test {
namespace {

struct Watch {
    std::mutex mutex;
    bool active = false;
    dev_t dev = 0;
    ino_t ino = 0;
    IoctlSpy::Handler handler;
};

Watch& watch() {
    static Watch instance;
    return instance;
}

}  // namespace

IoctlSpy::IoctlSpy(const std::string& path, Handler handler) {
    struct stat st {};
    stat(path.c_str(), &st);
    std::lock_guard<std::mutex> lock(watch().mutex);
    watch().dev = st.st_dev;
    watch().ino = st.st_ino;
    watch().handler = std::move(handler);
    watch().active = true;
}

IoctlSpy::~IoctlSpy() {
    std::lock_guard<std::mutex> lock(watch().mutex);
    watch().active = false;
    watch().handler = nullptr;
}

int IoctlSpy::realIoctl(int fd, unsigned long request, void* arg) {
    using IoctlFn = int (*)(int, unsigned long, ...);
    static IoctlFn real = reinterpret_cast<IoctlFn>(dlsym(RTLD_NEXT, "ioctl"));
    return real(fd, request, arg);
}

}  // namespace test
}  // namespace orvane

// Takes precedence over the C library's ioctl for every caller in the process.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list args;
    va_start(args, request);
    void* arg = va_arg(args, void*);
    va_end(args);
    orvane::test::IoctlSpy::Handler handler;
    {
        auto& w = orvane::test::watch();
        std::lock_guard<std::mutex> lock(w.mutex);
        struct stat st {};
        if (w.active && fstat(fd, &st) == 0 && st.st_dev == w.dev && st.st_ino == w.ino) {
            handler = w.handler;
        }
    }
    if (handler) return handler(fd, request, arg);
    return orvane::test::IoctlSpy::realIoctl(fd, request, arg);
}
