#include <errno.h>
#include <fcntl.h>
#include <orvane/Directory.h>
#include <orvane/IODevice.h>
#include <orvane/MemShared.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "io/MakeDirs.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

// An advisory lock on a descriptor for the duration of one copy.
class FileLock {
  public:
    FileLock(int fd, int operation) : fd_(fd) {
        int rc;
        do {
            rc = ::flock(fd_, operation);
        } while (rc != 0 && errno == EINTR);
        locked = rc == 0;
    }
    ~FileLock() {
        if (locked) ::flock(fd_, LOCK_UN);
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    bool locked;

  private:
    int fd_;  // the block's descriptor, borrowed for the lock; MemShared owns it
};

// The directory part of a name: "" when it has none, "/" for "/name".
std::string directoryOf(const std::string& name) {
    size_t slash = name.rfind('/');
    if (slash == std::string::npos) return std::string();
    return slash == 0 ? std::string("/") : name.substr(0, slash);
}

}  // namespace

MemShared::MemShared()
    : className("MemShared"), type(TYPE_SHM), size_(0), addr(nullptr), writable(false) {}

MemShared::~MemShared() { close(); }

bool MemShared::open(std::string sharedName, int length, int mode, MemShared::Type kind) {
    if (sharedName.empty()) {
        ORVANE_ERROR("not specify shared name!");
        return false;
    }
    if (fd.valid()) {
        ORVANE_ERROR("shared already exists!");
        return false;
    }
    int flags = O_RDWR | O_CLOEXEC;
    int protection = PROT_READ | PROT_WRITE;
    switch (mode) {
        case IO_READ:
            protection = PROT_READ;
            break;
        case IO_READ_WRITE:
            break;
        case IO_TRUNCATE:
            flags |= O_CREAT | O_TRUNC;
            break;
        case IO_CREATE:
            flags |= O_CREAT;
            break;
        default:
            ORVANE_ERROR("Unsupport IO Mode: %d", mode);
            return false;
    }
    std::string dir = directoryOf(sharedName);
    std::string failedDir;
    if (!dir.empty() && !Directory::exists(dir) &&
        detail::makeDirs(dir, 0777, true, &failedDir) != 0) {
        ORVANE_ERROR("create shared dir[%s] error!", dir.c_str());
        return false;
    }
    UniqueFd opened(kind == TYPE_SHM ? ::shm_open(sharedName.c_str(), flags, 0666)
                                     : ::open(sharedName.c_str(), flags, 0666));
    if (!opened) {
        int err = errno;
        ORVANE_ERROR("open shared[%s] error: %s", sharedName.c_str(), strerror(err));
        return false;
    }
    // Failures from here on close the descriptor, so the object stays closed.
    size_t mapLength = length > 0 ? static_cast<size_t>(length) : 0;
    if (length > 0 && ::ftruncate(opened.get(), length) != 0) {
        int err = errno;
        ORVANE_ERROR("set shared[%s] error: %s!", sharedName.c_str(), strerror(err));
        return false;
    }
    struct stat st;
    if (length <= 0 && ::fstat(opened.get(), &st) == 0) {
        mapLength = static_cast<size_t>(st.st_size);
    }
    void* mapped = ::mmap(nullptr, mapLength, protection, MAP_SHARED, opened.get(), 0);
    if (mapped == MAP_FAILED) {
        int err = errno;
        ORVANE_ERROR("map shared[%s] error: %s!", sharedName.c_str(), strerror(err));
        return false;
    }
    fd = std::move(opened);
    type = kind;
    addr = mapped;
    size_ = static_cast<int32_t>(mapLength);
    name = sharedName;
    writable = (protection & PROT_WRITE) != 0;
    return true;
}

void MemShared::close() {
    if (name.empty() || !fd) return;
    if (addr != nullptr) {
        if (::munmap(addr, static_cast<size_t>(size_)) != 0) {
            int err = errno;
            ORVANE_ERROR("unmap shared[%s], error:%s", name.c_str(), strerror(err));
            return;
        }
        addr = nullptr;
    }
    if (type == TYPE_SHM) {
        if (::shm_unlink(name.c_str()) != 0) {
            int err = errno;
            ORVANE_ERROR("shared[%s] unlink error: %s!", name.c_str(), strerror(err));
        }
        fd.release();  // unlinked, but its descriptor stays open for the rest of the process
    } else if (!fd.isAbove(0)) {
        fd.release();  // descriptor 0 is left open
    } else if (fd.close() != 0) {
        int err = errno;
        ORVANE_ERROR("shared[%s] close error: %s!", name.c_str(), strerror(err));
    }
}

int MemShared::putData(const void* data, int len) {
    if (data == nullptr || len <= 0 || addr == nullptr || !writable) return -1;
    FileLock lock(fd.get(), LOCK_EX);
    if (!lock.locked) return -1;
    size_t count = std::min(static_cast<size_t>(size_), static_cast<size_t>(len));
    memcpy(addr, data, count);
    if (type == TYPE_FILE && ::msync(addr, static_cast<size_t>(size_), MS_SYNC) != 0) return -1;
    return static_cast<int>(count);
}

int MemShared::getData(void* buf, int len) {
    if (buf == nullptr || len <= 0 || addr == nullptr) return -1;
    FileLock lock(fd.get(), LOCK_SH);
    if (!lock.locked) return -1;
    size_t count = std::min(static_cast<size_t>(size_), static_cast<size_t>(len));
    memcpy(buf, addr, count);
    return static_cast<int>(count);
}

int32_t MemShared::size() {
    struct stat st;
    if (!fd || ::fstat(fd.get(), &st) != 0) return 0;
    return static_cast<int32_t>(st.st_size);
}

MemPool::MemPool() : className("MemPool"), blockCount(0), blockSize(0) {}

MemPool::~MemPool() {
    for (void* area : areas) free(area);
}

bool MemPool::init(int count, int size, void* mem) {
    std::lock_guard<std::mutex> lock(mutex);
    if (count < 1 || size <= 0) return false;
    blockCount = count;
    blockSize = size;
    void* area =
        mem != nullptr ? mem : calloc(static_cast<size_t>(count), static_cast<size_t>(size));
    if (area == nullptr) return false;
    if (std::find(areas.begin(), areas.end(), area) == areas.end()) areas.push_back(area);
    blocks.reserve(blocks.size() + static_cast<size_t>(count));
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
        blocks.push_back(MemBlock{false, static_cast<char*>(area) + i * static_cast<size_t>(size),
                                  std::string()});
    }
    return true;
}

void* MemPool::getMemory(const std::string& name, int size) {
    std::lock_guard<std::mutex> lock(mutex);
    if (size < 1 || blockSize < 1 || blockCount < 1 || name.empty()) return nullptr;
    size_t needed = (static_cast<size_t>(blockSize) + static_cast<size_t>(size) - 1) /
                    static_cast<size_t>(blockSize);
    size_t run = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
        // A run also ends where one area ends and the next begins, so the
        // blocks handed out are always one piece of memory.
        bool adjoins = run > 0 && static_cast<char*>(blocks[i - 1].addr) + blockSize ==
                                      static_cast<char*>(blocks[i].addr);
        if (blocks[i].used) {
            run = 0;
            continue;
        }
        run = adjoins ? run + 1 : 1;
        if (run < needed) continue;
        size_t first = i + 1 - needed;
        for (size_t j = first; j <= i; ++j) {
            blocks[j].used = true;
            blocks[j].owner = name;
        }
        return blocks[first].addr;
    }
    return nullptr;
}

bool MemPool::putMemory(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex);
    if (blockSize < 1 || blockCount < 1) return false;
    for (MemBlock& block : blocks) {
        if (block.used && block.owner == name) {
            block.used = false;
            block.owner.clear();
        }
    }
    return true;
}

void MemPool::showMemory() {}

}  // namespace orvane
