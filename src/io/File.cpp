#include <errno.h>
#include <orvane/File.h>
#include <orvane/Time.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <new>

#include "io/Position.h"
#include "log/LogLine.h"

namespace orvane {

using detail::fitsLong;

namespace {

// Stream mode of each IOMode; null marks a mode File refuses. The trailing
// 'e' opens the descriptor close-on-exec atomically.
constexpr const char* kStreamModes[8] = {
    "rbe",    // IO_READ
    "rb+e",   // IO_WRITE: read-write, the file must exist
    "rb+e",   // IO_READ_WRITE
    nullptr,  // IO_APPEND
    "wbe",    // IO_TRUNCATE: write-only
    "wb+e",   // IO_CREATE
    "abe",    // IO_CREATE_APPEND
    "ab+e",   // IO_APPEND_READ
};

int fileTypeOf(mode_t mode) {
    if (S_ISREG(mode)) return FT_REGULAR;
    if (S_ISDIR(mode)) return FT_DIRECTORY;
    if (S_ISCHR(mode)) return FT_CHAR_DEVICE;
    if (S_ISBLK(mode)) return FT_BLOCK_DEVICE;
    if (S_ISLNK(mode)) return FT_SYMLINK;
    if (S_ISSOCK(mode)) return FT_SOCKET;
    if (S_ISFIFO(mode)) return FT_FIFO;
    return FT_UNKNOWN;
}

// Position of `stream`, -1 on error (errno kept).
int64_t tellOf(FILE* stream) {
    off_t at = ::ftello(stream);
    return at < 0 ? -1 : static_cast<int64_t>(at);
}

// Size of the file under `stream` by a seek to its end and back; -1 on error
// (errno kept).
int64_t sizeOf(FILE* stream) {
    off_t at = ::ftello(stream);
    if (at < 0 || ::fseeko(stream, 0, SEEK_END) != 0) return -1;
    off_t end = ::ftello(stream);
    int err = errno;
    ::fseeko(stream, at, SEEK_SET);
    errno = err;
    return end < 0 ? -1 : static_cast<int64_t>(end);
}

constexpr int kChunk = 512;

}  // namespace

File::File() : className("File"), stream(nullptr), mapAddr(nullptr), mapLen(0) {}

File::~File() {
    close();
    if (mapAddr != nullptr && mapAddr != MAP_FAILED) ::munmap(mapAddr, mapLen);
}

bool File::open(const std::string& name, int mode) {
    if (name.empty()) {
        ORVANE_ERROR("file name is empty.");
        errno = EINVAL;  // callers that report the failure again read the cause
        return false;
    }
    const char* streamMode = static_cast<unsigned int>(mode) < 8 ? kStreamModes[mode] : nullptr;
    if (streamMode == nullptr) {
        ORVANE_ERROR("Unsupport mode(%d)", mode);
        errno = EINVAL;
        return false;
    }
    if (stream != nullptr) {
        fd_.release();  // the stream owns the descriptor and fclose closes it
        ::fclose(stream);
        stream = nullptr;
    }
    if (wmSize != 0) {
        // Without memory the file still works, unbuffered.
        wmBuffer.reset(new (std::nothrow) char[wmSize]());
        wmFill = 0;
    }
    errno = 0;
    stream = ::fopen(name.c_str(), streamMode);
    if (stream == nullptr) {
        int err = errno;
        ORVANE_ERROR("file(%s) open error: %s.", name.c_str(), strerror(err));
        errno = err;  // callers that report the failure again read the cause
        return false;
    }
    // The "e" in every stream mode opened the descriptor close-on-exec
    // already, atomically, so no fcntl round trip is needed afterwards. The
    // stream owns the descriptor; fd_ holds it for the inherited calls and is
    // released, never closed, before the stream is.
    fd_.reset(::fileno(stream));
    devName = name;
    return true;
}

bool File::close() {
    if (stream == nullptr) return true;
    if (wmBuffer && wmFill > 0) {
        ::fwrite(wmBuffer.get(), 1, wmFill, stream);
        wmBuffer.reset();
        wmFill = 0;
    }
    if (fd_.isAbove(0)) ::fsync(fd_.get());
    fd_.release();  // fclose closes it
    ::fclose(stream);
    stream = nullptr;
    return true;
}

int File::readData(char* buf, int len) {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    if (buf == nullptr || len < 1) {
        ORVANE_ERROR("parameter error:buf=0x%x,count=%d.",
                     static_cast<unsigned int>(reinterpret_cast<uintptr_t>(buf)), len);
        return -1;
    }
    return static_cast<int>(::fread(buf, 1, static_cast<size_t>(len), stream));
}

int File::writeData(const char* data, int len) {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    if (data == nullptr || len < 1) {
        ORVANE_ERROR("parameter error.");
        return -1;
    }
    if (!wmBuffer) return static_cast<int>(::fwrite(data, 1, static_cast<size_t>(len), stream));

    size_t left = static_cast<size_t>(len);
    size_t room = wmSize - wmFill;
    char* buffer = wmBuffer.get();
    if (left < room) {
        memcpy(buffer + wmFill, data, left);
        wmFill += static_cast<unsigned int>(left);
        return len;
    }
    // Complete the pending buffer and write it; further whole buffers go to
    // the stream straight from the input (the same bytes in the same fwrite
    // sizes as copying them through the buffer); the tail stays pending.
    memcpy(buffer + wmFill, data, room);
    const char* next = data + room;
    left -= room;
    const char* block = buffer;
    for (;;) {
        size_t written = ::fwrite(block, 1, wmSize, stream);
        if (written < wmSize) {
            int err = errno;
            ORVANE_ERROR("MM(%d) wirte(%d) error: %s", static_cast<int>(wmSize),
                         static_cast<int>(written), strerror(err));
            return static_cast<int>(written);
        }
        wmFill = 0;
        if (left < wmSize) {
            memcpy(buffer, next, left);
            wmFill = static_cast<unsigned int>(left);
            return len;
        }
        block = next;
        next += wmSize;
        left -= wmSize;
    }
}

void File::flush() {
    if (stream == nullptr || !wmBuffer || wmFill == 0) return;
    ::fwrite(wmBuffer.get(), 1, wmFill, stream);
    wmFill = 0;
}

long File::getPos() {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    int64_t at = tellOf(stream);
    if (!fitsLong(at)) {
        ORVANE_ERROR("file(%s) position %" PRId64 " beyond long, use pos()!", devName.c_str(), at);
        return -1;
    }
    return static_cast<long>(at);
}

int64_t File::pos() {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    int64_t at = tellOf(stream);
    if (at < 0) {
        int err = errno;
        ORVANE_ERROR("file(%s) tell error: %s!", devName.c_str(), strerror(err));
    }
    return at;
}

bool File::seek(int64_t offset) {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return false;
    }
    if (offset < 0) {
        ORVANE_ERROR("file(%s) seek to negative offset %" PRId64 "!", devName.c_str(), offset);
        return false;
    }
    if (::fseeko(stream, static_cast<off_t>(offset), SEEK_SET) != 0) {
        int err = errno;
        ORVANE_ERROR("file(%s) seek to %" PRId64 " error: %s!", devName.c_str(), offset,
                     strerror(err));
        return false;
    }
    return true;
}

long File::setPos(long pos) {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    return ::fseek(stream, pos, SEEK_SET) == 0 ? pos : -1;
}

bool File::setIOBuffer(unsigned int size) {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return false;
    }
    if (::setvbuf(stream, nullptr, _IOFBF, size) != 0) {
        int err = errno;
        ORVANE_ERROR("file(%s) setvbuf error: %s!", devName.c_str(), strerror(err));
        return false;
    }
    return true;
}

long File::getSize() {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    int64_t bytes = sizeOf(stream);
    if (!fitsLong(bytes)) {
        ORVANE_ERROR("file(%s) size %" PRId64 " beyond long, use size()!", devName.c_str(), bytes);
        return -1;
    }
    return static_cast<long>(bytes);
}

int64_t File::size() {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    int64_t bytes = sizeOf(stream);
    if (bytes < 0) {
        int err = errno;
        ORVANE_ERROR("file(%s) size error: %s!", devName.c_str(), strerror(err));
    }
    return bytes;
}

bool File::isEnd() {
    // The virtual getPos() (a subclass's position counts) against the size.
    // Where long is 32-bit, a file past 2 GiB has no long position, so the
    // 64-bit one decides; the size is taken once either way.
    if (sizeof(long) < sizeof(int64_t) && stream != nullptr) {
        int64_t bytes = sizeOf(stream);
        int64_t at = fitsLong(bytes) ? getPos() : pos();
        return at >= 0 && at == bytes;
    }
    long at = getPos();
    return at >= 0 && at == getSize();
}

int File::readLine(std::string* line) {
    if (stream == nullptr) {
        ORVANE_ERROR("file(%s) not open!", devName.c_str());
        return -1;
    }
    if (line == nullptr) {
        ORVANE_ERROR("parameter error.");
        return -1;
    }
    line->clear();
    char byte = 0;
    for (;;) {
        int n = readData(&byte, 1);
        if (n == 0) return 0;
        if (n < 0) return -1;
        if (byte == '\n') {
            if (!line->empty() && line->back() == '\r') line->pop_back();
            return static_cast<int>(line->size());
        }
        line->push_back(byte);
    }
}

std::string File::readString(unsigned long size) {
    std::string result;
    char chunk[kChunk];
    // Appends one chunk read; true when it came back whole, so reading goes on.
    auto readChunk = [&](int want) {
        int n = readData(chunk, want);
        if (n < 1) return false;
        result.append(chunk, static_cast<size_t>(n));
        return n == kChunk;
    };
    if (size == 0) {
        while (readChunk(kChunk)) {
        }
        return result;
    }
    for (unsigned long i = 0; i < size / kChunk; ++i) {
        if (!readChunk(kChunk)) return result;
    }
    if (size % kChunk != 0) readChunk(static_cast<int>(size % kChunk));
    return result;
}

std::string File::readAll() { return readAll(devName); }

void* File::mapMemory() {
    if (mapAddr != nullptr) return mapAddr;
    int64_t bytes = std::max<int64_t>(size(), 0);
    size_t length = static_cast<size_t>(bytes);
    if (static_cast<int64_t>(length) != bytes) {
        ORVANE_ERROR("file(%s) of %" PRId64 " bytes too large to map!", devName.c_str(), bytes);
        return nullptr;
    }
    mapAddr = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0);
    if (mapAddr == MAP_FAILED) {
        int err = errno;
        ORVANE_ERROR("file(%s) map memory error: %s!", devName.c_str(), strerror(err));
        return nullptr;
    }
    mapLen = length;
    return mapAddr;
}

bool File::unmapMemory() {
    if (mapAddr == nullptr) return true;
    // The length mapped, so a mapping can be released after the file changed size or closed.
    if (::munmap(mapAddr, mapLen) != 0) {
        int err = errno;
        ORVANE_ERROR("file(%s) unmap memory error: %s!", devName.c_str(), strerror(err));
        return false;
    }
    mapAddr = nullptr;
    mapLen = 0;
    return true;
}

bool File::exists(const std::string& path) {
    struct stat st;
    return ::access(path.c_str(), F_OK) == 0 && ::lstat(path.c_str(), &st) == 0 &&
           !S_ISDIR(st.st_mode);
}

int File::type(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
        int err = errno;
        ORVANE_SERROR("lstat(%s) error: %s!", path.c_str(), strerror(err));
        return FT_UNKNOWN;
    }
    return fileTypeOf(st.st_mode);
}

int64_t File::modifyTime(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
        int err = errno;
        ORVANE_SERROR("lstat(%s) error: %s!", path.c_str(), strerror(err));
        return 0;
    }
    return Time(st.st_mtim).toMicroSec();
}

bool File::remove(const std::string& path) {
    if (::remove(path.c_str()) != 0) {
        int err = errno;
        ORVANE_SERROR("remove file(%s) error: %s.", path.c_str(), strerror(err));
        return false;
    }
    return true;
}

bool File::rename(const std::string& oldPath, const std::string& newPath) {
    if (!exists(oldPath) || exists(newPath)) {
        ORVANE_SERROR("old file not exists or new file exists!");
        return false;
    }
    if (::rename(oldPath.c_str(), newPath.c_str()) != 0) {
        int err = errno;
        ORVANE_SERROR("rename file(%s)->(%s) error: %s.", oldPath.c_str(), newPath.c_str(),
                      strerror(err));
        return false;
    }
    return true;
}

bool File::replace(const std::string& oldPath, const std::string& newPath) {
    if (::rename(oldPath.c_str(), newPath.c_str()) != 0) {
        int err = errno;
        ORVANE_SERROR("replace file(%s)->(%s) error: %s.", oldPath.c_str(), newPath.c_str(),
                      strerror(err));
        return false;
    }
    return true;
}

bool File::truncate(const std::string& path, int length) {
    if (length < 0) return false;
    File file;
    if (!file.open(path, IO_READ_WRITE)) {
        int err = errno;
        ORVANE_SERROR("open file(%s) error: %s", path.empty() ? "(null)" : path.c_str(),
                      strerror(err));
        return false;
    }
    return ::ftruncate(file.fd(), length) == 0;
}

uint32_t File::getSize(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) return 0;
    return static_cast<uint32_t>(static_cast<uint64_t>(st.st_size));
}

std::string File::readAll(const std::string& path) {
    File file;
    if (!file.open(path, IO_READ)) {
        int err = errno;
        ORVANE_SERROR("open file(%s) error: %s", path.c_str(), strerror(err));
        return std::string();
    }
    return file.readString(0);
}

}  // namespace orvane
