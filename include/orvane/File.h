#pragma once

#include <orvane/Export.h>
#include <orvane/IODevice.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace orvane {

// Kind of a directory entry as reported by File::type (lstat: links are not followed).
enum FileType {
    FT_UNKNOWN = -1,
    FT_REGULAR = 0,
    FT_DIRECTORY = 1,
    FT_CHAR_DEVICE = 2,
    FT_BLOCK_DEVICE = 3,
    FT_SYMLINK = 4,
    FT_SOCKET = 5,
    FT_FIFO = 6
};

// A file worked through a buffered C stream, with whole-file helpers (lines,
// read-all, size, end test, memory mapping) and static path operations.
//
// Failures are logged once and reported by result (false, -1, 0, null or an
// empty string). No locks: one thread at a time uses an object; the static
// operations are safe from any thread.
//
// Which mode for which job:
// - read a file: IO_READ; read and write an existing one: IO_READ_WRITE;
// - start a file afresh (created, emptied): IO_TRUNCATE;
// - append to a log, creating it when missing: IO_CREATE_APPEND ("ab");
//   add reading with IO_APPEND_READ. IO_APPEND is IODevice's and File refuses it.
//
// Behaviour worth knowing:
// - open() accepts IO_READ .. IO_APPEND_READ except IO_APPEND; IO_WRITE opens
//   the read-write stream "rb+" (the file must exist) and IO_TRUNCATE the
//   write-only "wb". open() on an open File replaces its stream, dropping any
//   pending write-merge bytes. open() does not record the mode, so reopen()
//   fails on a File.
// - With a write-merge buffer (setWMBuffer) writes are collected and reach the
//   stream in whole buffers; flush() and close() write the remainder. flush()
//   does not fflush the stream. Reads and seeks do not flush.
// - close() (and so the destructor) fsyncs the file: it waits for the disk.
// - readLine and readString read one byte / 512 bytes per virtual readData call.
class ORVANE_API File : public IODevice {
  public:
    File();
    // close(), then unmaps a mapping that is still there.
    ~File() override;

    bool open(const std::string& name, int mode) override;
    bool close() override;
    int readData(char* buf, int len) override;
    int writeData(const char* data, int len) override;
    // Writes pending write-merge bytes to the stream (no fflush, no fsync).
    void flush() override;
    long getPos() override;
    long setPos(long pos) override;
    // setvbuf(_IOFBF, size) on the open stream.
    bool setIOBuffer(unsigned int size) override;

    // Size of the open file in bytes; keeps the position. -1 on error, and
    // (logged) where long cannot hold the size (from 2 GiB on 32-bit targets).
    long getSize();

    // The 64-bit forms of getSize(), getPos() and setPos(). On 32-bit
    // targets long ends at 2 GiB: there getPos() and getSize() give -1
    // (logged) past it and setPos() cannot reach beyond it, so files of any
    // size take these. For the thread that owns the File; one stream call
    // each (size(): three); failures (not open, a refused seek) are logged.
    // Size of the open file in bytes, the position kept; -1 on error.
    int64_t size();
    // Position of the stream; -1 on error.
    int64_t pos();
    // Moves the stream to `offset` from the start; false for a negative
    // offset or a refused seek (the position then stays).
    bool seek(int64_t offset);

    // Whether the position is at the size: the virtual getPos() against
    // getSize(), which log "not open" when closed; on 32-bit targets a file
    // past 2 GiB is compared through pos() and size(). A few lseek calls.
    bool isEnd();
    // Next line without its LF (and a CR before it): its length, 0 at the end
    // of the file or for an empty line, -1 on error. `line` keeps what was read.
    int readLine(std::string* line);
    // Up to `size` bytes (0: to the end) from the current position.
    std::string readString(unsigned long size);
    // The whole file, read through a second stream; this one's position is untouched.
    std::string readAll();
    // Maps the whole file read-write and shared; the same address on later
    // calls. Null on failure, after which later calls return MAP_FAILED.
    void* mapMemory();
    // Unmaps what mapMemory mapped; true when nothing is mapped, false (logged) when munmap fails.
    bool unmapMemory();

    // A path that exists and is not a directory (a dangling link does not exist).
    static bool exists(const std::string& path);
    // A FileType value; FT_UNKNOWN (-1) when lstat fails.
    static int type(const std::string& path);
    // Modification time in microseconds since the epoch; 0 on error.
    static int64_t modifyTime(const std::string& path);
    // Removes the file or empty directory at `path`; false (logged) on failure.
    static bool remove(const std::string& path);
    // Refuses when oldPath does not exist or newPath exists (the two checks
    // and the rename are separate steps). To replace newPath, use replace().
    static bool rename(const std::string& oldPath, const std::string& newPath);
    // Renames oldPath to newPath in one step (rename(2)), replacing a file at
    // newPath atomically: a reader sees the old or the new file, never none.
    // Both paths must be on one file system. False, with a logged line, when
    // the rename fails (oldPath missing, newPath a directory, another file system).
    static bool replace(const std::string& oldPath, const std::string& newPath);
    // Cuts or extends the file at `path` to `length` bytes; false for a negative length or a file
    // that cannot be opened (logged) or truncated.
    static bool truncate(const std::string& path, int length);
    // Size from lstat, truncated to 32 bits; 0 on error.
    static uint32_t getSize(const std::string& path);
    // The whole content of the file at `path`; "" when it cannot be read.
    static std::string readAll(const std::string& path);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The C stream over the descriptor while open.
    FILE* stream;
    // The address mapped by mapMemory, or null.
    void* mapAddr;

  private:
    size_t mapLen;
};

}  // namespace orvane
