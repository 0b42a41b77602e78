#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <orvane/DirectFile.h>
#include <orvane/UniqueFd.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <utility>

#include "io/Position.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

// open() flags of each IOMode: every mode that writes opens read-write, as a
// partial block is read back before it is written; no O_APPEND.
constexpr int kDirectFlags[7] = {
    O_RDONLY,                    // IO_READ
    O_RDWR,                      // IO_WRITE
    O_RDWR,                      // IO_READ_WRITE
    O_RDWR,                      // IO_APPEND
    O_RDWR | O_CREAT | O_TRUNC,  // IO_TRUNCATE
    O_RDWR | O_CREAT,            // IO_CREATE
    O_RDWR | O_CREAT,            // IO_CREATE_APPEND
};

constexpr unsigned int kFallbackAlignment = 4096;
constexpr size_t kBounceSize = 64 * 1024;
// The largest single transfer, a multiple of every alignment in use.
constexpr size_t kMaxChunk = 1u << 30;

// The offset and memory alignment of direct I/O on `fd`; false when the
// file system says the file cannot be used for it.
bool queryAlignment(int fd, unsigned int* offsetAlign, unsigned int* memAlign) {
    *offsetAlign = kFallbackAlignment;
    *memAlign = kFallbackAlignment;
    struct statx stx;
#ifdef STATX_DIOALIGN
    if (::statx(fd, "", AT_EMPTY_PATH, STATX_TYPE | STATX_DIOALIGN, &stx) == 0 &&
        (stx.stx_mask & STATX_DIOALIGN) != 0) {
        if (stx.stx_dio_offset_align == 0) return false;
        *offsetAlign = stx.stx_dio_offset_align;
        *memAlign = std::max(stx.stx_dio_mem_align, 1u);
        return true;
    }
#endif
    struct stat st;
    int sectorSize = 0;
    if (::fstat(fd, &st) == 0 && S_ISBLK(st.st_mode) && ::ioctl(fd, BLKSSZGET, &sectorSize) == 0 &&
        sectorSize > 0) {
        *offsetAlign = static_cast<unsigned int>(sectorSize);
        *memAlign = static_cast<unsigned int>(sectorSize);
    }
    (void)stx;
    return true;
}

bool isAligned(uint64_t value, unsigned int alignment) { return value % alignment == 0; }

}  // namespace

DirectFile::DirectFile()
    : className("DirectFile"),
      pos_(0),
      alignment_(0),
      memAlignment_(0),
      append_(false),
      bounce_(nullptr) {
    directIO = true;
}

DirectFile::~DirectFile() { DirectFile::close(); }

void DirectFile::release() {
    free(bounce_);
    bounce_ = nullptr;
    alignment_ = 0;
    memAlignment_ = 0;
}

bool DirectFile::open(const std::string& name, int mode) {
    if (mode == IO_APPEND_READ) {
        ORVANE_ERROR("Unsupport IO Mode: %d!", mode);
        return false;
    }
    if (name.empty() || mode < IO_READ || mode > IO_CREATE_APPEND) {
        ORVANE_ERROR("param error!");
        return false;
    }
    if (fd_.valid()) {
        ORVANE_ERROR("device is already opened!");
        return false;
    }
    int flags = kDirectFlags[mode] | O_CLOEXEC | (directIO ? O_DIRECT : 0);
    UniqueFd fd(::open(name.c_str(), flags, 0666));
    if (!fd) {
        int err = errno;
        if (err == EINVAL && directIO) {
            ORVANE_ERROR("file system of %s refuses direct I/O (O_DIRECT)!", name.c_str());
        } else {
            ORVANE_ERROR("open %s error: %s!", name.c_str(), strerror(err));
        }
        return false;
    }
    unsigned int offsetAlign = 0;
    unsigned int memAlign = 0;
    if (!queryAlignment(fd.get(), &offsetAlign, &memAlign)) {
        ORVANE_ERROR("file system of %s refuses direct I/O for this file!", name.c_str());
        return false;
    }
    // Offsets and lengths also keep the memory alignment, so that every block
    // of the bounce buffer may be handed to the kernel on its own.
    unsigned int align = std::max(offsetAlign, memAlign);
    size_t bufferAlign = std::max<size_t>(align, sizeof(void*));
    size_t bufferSize = std::max<size_t>(kBounceSize, align);
    void* buffer = nullptr;
    int err = ::posix_memalign(&buffer, bufferAlign, bufferSize);
    if (err != 0) {
        ORVANE_ERROR("bounce buffer of %zu bytes error: %s!", bufferSize, strerror(err));
        return false;
    }
    bounce_ = static_cast<char*>(buffer);
    alignment_ = align;
    memAlignment_ = memAlign;
    append_ = mode == IO_APPEND || mode == IO_CREATE_APPEND;
    pos_ = 0;
    fd_ = std::move(fd);
    devName = name;
    ioMode = mode;
    return true;
}

bool DirectFile::close() {
    if (!fd_.valid()) return true;
    flush();
    fd_.close();
    release();
    return true;
}

void DirectFile::flush() {
    if (fd_.valid()) ::fsync(fd_.get());
}

bool DirectFile::sync() {
    if (!fd_.valid()) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return false;
    }
    if (::fsync(fd_.get()) != 0) {
        int err = errno;
        ORVANE_ERROR("fsync(%s) error: %s!", devName.c_str(), strerror(err));
        return false;
    }
    return true;
}

int64_t DirectFile::getSize() {
    struct stat st;
    if (!fd_.valid()) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    if (::fstat(fd_.get(), &st) != 0) {
        int err = errno;
        ORVANE_ERROR("fstat(%s) error: %s!", devName.c_str(), strerror(err));
        return -1;
    }
    return st.st_size;
}

long DirectFile::getPos() {
    if (!fd_.valid()) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    if (!detail::fitsLong(pos_)) {
        ORVANE_ERROR("file(%s) position %" PRId64 " beyond long!", devName.c_str(), pos_);
        return -1;
    }
    return static_cast<long>(pos_);
}

long DirectFile::setPos(long pos) {
    if (!fd_.valid()) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    if (pos < 0) {
        ORVANE_ERROR("invalid position(%ld)!", pos);
        return -1;
    }
    pos_ = pos;
    return pos;
}

int DirectFile::readData(char* buf, int len) {
    return transfer(__func__, "param error!", buf, len, false);
}

int DirectFile::writeData(const char* data, int len) {
    return transfer(__func__, "param error.", const_cast<char*>(data), len, true);
}

int DirectFile::recvData(char* buf, int len, int timeoutUs) {
    (void)timeoutUs;
    return readData(buf, len);
}

int DirectFile::sendData(const char* data, int len, int timeoutUs) {
    (void)timeoutUs;
    return writeData(data, len);
}

// The checks of readData and writeData, logged for `method`, then the move;
// the byte count or -1.
int DirectFile::transfer(const char* method, const char* paramText, char* buf, int len,
                         bool forWrite) {
    if (buf == nullptr || len < 1) {
        ORVANE_ERROR_IN(method, "%s", paramText);
        return -1;
    }
    if (!fd_.valid()) {
        ORVANE_ERROR_IN(method, "device not open.");
        return -1;
    }
    size_t done = 0;
    return moveBytes(method, buf, static_cast<size_t>(len), forWrite, &done)
               ? static_cast<int>(done)
               : -1;
}

// Moves `len` bytes between `buf` and the file at the position, in chunks:
// straight when buffer, position and length allow, else through the bounce
// buffer. Logs a failure for `method`; *done counts the bytes moved.
bool DirectFile::moveBytes(const char* method, char* buf, size_t len, bool forWrite, size_t* done) {
    int64_t size = 0;
    if (forWrite && (size = getSize()) < 0) return false;
    int64_t at = forWrite && append_ ? size : pos_;
    const size_t align = alignment_;
    int64_t blocksEnd = 0;  // the end of the whole blocks written through the bounce buffer
    bool ok = true;
    while (*done < len) {
        size_t left = len - *done;
        char* here = buf + *done;
        if (isAligned(reinterpret_cast<uintptr_t>(here), memAlignment_) &&
            isAligned(static_cast<uint64_t>(at), alignment_) && left >= align) {
            size_t chunk = std::min(left - left % align, kMaxChunk);
            ssize_t n = forWrite ? ::pwrite(fd_.get(), here, chunk, at)
                                 : ::pread(fd_.get(), here, chunk, at);
            if (n < 0 || (n == 0 && forWrite)) {
                int err = n < 0 ? errno : EIO;
                ORVANE_ERROR_IN(method, "%s %s error: %s!", forWrite ? "write" : "read",
                                devName.c_str(), strerror(err));
                ok = false;
                break;
            }
            *done += static_cast<size_t>(n);
            at += n;
            if (static_cast<size_t>(n) < chunk && !forWrite) break;  // end of file
            continue;
        }
        int64_t start = at - at % static_cast<int64_t>(align);
        size_t delta = static_cast<size_t>(at - start);
        size_t bufferSize = std::max(kBounceSize, align);
        size_t take = std::min(left, bufferSize - delta);
        size_t span = (delta + take + align - 1) / align * align;
        if (!forWrite) {
            ssize_t n = ::pread(fd_.get(), bounce_, span, start);
            if (n < 0) {
                int err = errno;
                ORVANE_ERROR_IN(method, "read %s error: %s!", devName.c_str(), strerror(err));
                ok = false;
                break;
            }
            if (static_cast<size_t>(n) <= delta) break;  // end of file
            take = std::min(take, static_cast<size_t>(n) - delta);
            memcpy(here, bounce_ + delta, take);
            *done += take;
            at += static_cast<int64_t>(take);
            if (static_cast<size_t>(n) < span) break;
            continue;
        }
        blocksEnd = std::max(blocksEnd, start + static_cast<int64_t>(span));
        if (!writeBlocks(method, here, take, at)) {
            ok = false;
            break;
        }
        *done += take;
        at += static_cast<int64_t>(take);
    }
    if (forWrite && at > size) size = at;
    // The last whole block written may reach past the true end of the file.
    if (forWrite && blocksEnd > size && ::ftruncate(fd_.get(), size) != 0) {
        int err = errno;
        ORVANE_ERROR_IN(method, "truncate %s to %lld error: %s!", devName.c_str(),
                        static_cast<long long>(size), strerror(err));
        ok = false;
    }
    pos_ = at;
    return ok;
}

// Writes `len` bytes (fitting the bounce buffer) at `at` as whole blocks,
// reading back the partly covered first and last block.
bool DirectFile::writeBlocks(const char* method, const char* data, size_t len, int64_t at) {
    const size_t align = alignment_;
    int64_t start = at - at % static_cast<int64_t>(align);
    size_t delta = static_cast<size_t>(at - start);
    size_t end = delta + len;
    size_t span = (end + align - 1) / align * align;
    const size_t edges[2] = {0, span - align};
    const bool partial[2] = {delta != 0, end % align != 0};
    for (int i = 0; i < 2; ++i) {
        if (!partial[i] || (i == 1 && partial[0] && edges[1] == 0)) continue;
        memset(bounce_ + edges[i], 0, align);
        if (::pread(fd_.get(), bounce_ + edges[i], align, start + static_cast<int64_t>(edges[i])) <
            0) {
            int err = errno;
            ORVANE_ERROR_IN(method, "read back %s error: %s!", devName.c_str(), strerror(err));
            return false;
        }
    }
    memcpy(bounce_ + delta, data, len);
    ssize_t n = ::pwrite(fd_.get(), bounce_, span, start);
    if (n != static_cast<ssize_t>(span)) {
        int err = n < 0 ? errno : EIO;
        ORVANE_ERROR_IN(method, "write %s error: %s!", devName.c_str(), strerror(err));
        return false;
    }
    return true;
}

}  // namespace orvane
