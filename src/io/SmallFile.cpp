#include "io/SmallFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <orvane/UniqueFd.h>

namespace orvane {
namespace detail {

int readSmallFile(const std::string& path, std::string* text) {
    text->clear();
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) return errno;
    char buf[4096];
    while (text->size() < (1u << 20)) {
        ssize_t n = ::read(fd.get(), buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) break;
        text->append(buf, static_cast<size_t>(n));
    }
    return 0;
}

int writeSmallFile(const std::string& path, const std::string& text) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!fd) return errno;
    ssize_t n = ::write(fd.get(), text.data(), text.size());
    if (n < 0) return errno;
    return static_cast<size_t>(n) == text.size() ? 0 : EIO;
}

}  // namespace detail
}  // namespace orvane
