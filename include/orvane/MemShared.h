#pragma once

#include <orvane/Export.h>
#include <orvane/UniqueFd.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace orvane {

// One named block of memory shared between processes: a POSIX shared-memory
// object (TYPE_SHM, names like "/name") or a plain file (TYPE_FILE), mapped
// whole. putData and getData copy from and to the start of the block under an
// advisory flock (exclusive for writes, shared for reads), so processes that
// use this class see whole blocks. A TYPE_FILE block is msync'ed after every
// putData, which costs a disk write per call.
//
// open accepts IO_READ (mapped read-only: putData fails), IO_READ_WRITE,
// IO_TRUNCATE and IO_CREATE. Failures of open and close are logged once and
// reported as false; putData and getData fail silently with -1.
// close() of a TYPE_SHM block removes its name from the system, so a later
// open by name creates a new object, but leaves the block's descriptor open
// for the rest of the process: each open and close of a TYPE_SHM block costs
// one descriptor. close() of a TYPE_FILE block closes its descriptor (except
// descriptor 0, which it leaves open) and keeps the file. No thread lock: one
// thread at a time uses an object.
class ORVANE_API MemShared {
  public:
    // What backs the block: a POSIX shared-memory object or a plain file.
    enum Type { TYPE_SHM = 0, TYPE_FILE = 1 };

    MemShared();
    virtual ~MemShared();
    MemShared(const MemShared&) = delete;
    MemShared& operator=(const MemShared&) = delete;

    // `length` > 0 sets the object's size; otherwise its current size is mapped.
    bool open(std::string sharedName, int length, int mode, MemShared::Type kind);
    // Unmaps the block; see the class comment for what stays.
    void close();
    // Copies min(size, len) bytes; that count, or -1.
    int putData(const void* data, int len);
    // Copies min(size, len) bytes from the start of the block into `buf`; that count, or -1.
    int getData(void* buf, int len);
    // The object's current size (fstat), 0 when closed.
    int32_t size();
    // The mapped address, or null when closed.
    void* data() { return addr; }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // What backs the block.
    Type type;
    // The descriptor of the object or file.
    UniqueFd fd;
    // The mapped size in bytes.
    int32_t size_;
    // The mapped address, or null.
    void* addr;
    // The name the block was opened under.
    std::string name;

  private:
    bool writable;
};

// Hands out runs of consecutive equal blocks of one memory area by owner
// name, first fit. Every operation holds the pool's mutex, so any thread may
// call it. The destructor frees the area with free() also when it was given
// to init(), so such an area must come from malloc or calloc.
class ORVANE_API MemPool {
  public:
    // One block of the pool's area.
    struct MemBlock {
        // True while an owner holds the block.
        bool used;
        // The block's address in the area.
        void* addr;
        // The name of the holder; empty when free.
        std::string owner;
    };

    MemPool();
    ~MemPool();
    MemPool(const MemPool&) = delete;
    MemPool& operator=(const MemPool&) = delete;

    // `count` blocks of `size` bytes in `mem`, or in a zeroed area allocated
    // here when `mem` is null. A second init adds further blocks.
    bool init(int count, int size, void* mem);
    // The first run of free blocks large enough for `size` bytes, now owned
    // by `name`; null when there is none.
    void* getMemory(const std::string& name, int size);
    // Frees every block owned by `name`; true also when it owned none.
    bool putMemory(const std::string& name);
    // Prints nothing.
    void showMemory();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The block count given to the last init().
    int blockCount;
    // The block size in bytes given to the last init().
    int blockSize;
    // Every block, area by area in the order init() added them.
    std::vector<MemBlock> blocks;
    // Held by every operation.
    std::mutex mutex;

  private:
    std::vector<void*> areas;  // every area init() took; freed by the destructor
};

}  // namespace orvane
