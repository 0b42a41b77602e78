#pragma once

#include <orvane/Export.h>
#include <orvane/IODevice.h>

#include <cstdint>
#include <string>

namespace orvane {

// A file opened for direct I/O (O_DIRECT): reads and writes go between the
// caller and the device without the page cache, as flash and SD-card logging
// wants (no dirty pages piling up, no double buffering). The kernel demands
// that the buffer address, the file offset and the length be multiples of
// the device's alignment; DirectFile takes care of that, so any buffer, any
// length and any position may be used:
//
//     DirectFile log;
//     if (!log.open("/mnt/sd/events.bin", IO_CREATE_APPEND)) return false;  // logged
//     log.writeData(record, recordLen);   // any length, any buffer
//     log.sync();                          // metadata too, before power may go
//
// How: the alignment is asked of the file (statx STATX_DIOALIGN), of a block
// device (ioctl BLKSSZGET), or taken as 4096. A transfer whose buffer,
// position and length are all aligned goes straight to the kernel. Any other
// goes through an aligned bounce buffer of 64 KiB (allocated at open): a
// write that covers a block only partly reads that block first and writes it
// back whole (read-modify-write), then cuts the file back to its true end,
// so the size grows by exactly the bytes written. Unaligned transfers thus
// cost a copy and, at the edges, an extra read: an unaligned 4000-byte write
// took about three times as long as an aligned 4096-byte one, which costs
// the same as a bare pwrite (bench/DirectFileBench.cpp, ext4 on a virtual
// disk). Callers that can keep buffer, position and length aligned should.
//
// Failures are logged once and reported by result (false, -1). open() fails
// clearly where the file system refuses direct I/O (ramfs, some FUSE file
// systems): "file system of %s refuses direct I/O". tmpfs accepts O_DIRECT
// on recent kernels and reports no alignment; 4096 is used there.
//
// Behaviour worth knowing:
// - Partial-block writes read the block back, so IO_WRITE opens the file
//   read-write; the two append modes write at the end of the file (kept by
//   DirectFile, not O_APPEND, which would defeat the read-modify-write).
// - The position is DirectFile's own (pread/pwrite at it): getPos, setPos
//   and reads and writes agree, but a descriptor shared with another process
//   has its own offset.
// - Direct I/O bypasses the cache for data, not for metadata: sync() (and
//   close) runs fsync so that the size and block map survive a power cut.
// - recvData/sendData do the same as readData/writeData: a file is always
//   ready, the timeout is not used. The write-merge buffer is not used.
// - Two DirectFiles writing the same blocks at once can lose each other's
//   bytes in the read-modify-write; give each region one writer.
//
// No locks: one thread at a time uses an object.
class ORVANE_API DirectFile : public IODevice {
  public:
    DirectFile();
    ~DirectFile() override;

    // Opens `name` with O_DIRECT in one of the IOMode values IO_READ to
    // IO_CREATE_APPEND (IO_APPEND_READ is refused), learns the alignment and
    // allocates the bounce buffer. Fails when already open, when the open
    // fails, or when the file system refuses direct I/O for the file.
    bool open(const std::string& name, int mode) override;
    // sync(), then closes. Always true.
    bool close() override;
    // Up to `len` bytes from the position; 0 at the end of the file, -1 on error.
    int readData(char* buf, int len) override;
    // `len` bytes at the position (at the end in the append modes); `len`,
    // or -1 on error, when the file may hold part of the bytes.
    int writeData(const char* data, int len) override;
    int recvData(char* buf, int len, int timeoutUs) override;
    // As writeData; the timeout is not used.
    int sendData(const char* data, int len, int timeoutUs) override;
    // fsync(); see sync().
    void flush() override;
    // The position for the next transfer; -1 (logged) when closed or beyond what long holds.
    long getPos() override;
    // Any position 0 or more (also past the end: a write there leaves a hole);
    // the new position, or -1.
    long setPos(long pos) override;

    // fsync(): waits until data and metadata are on the device.
    bool sync();
    // Size of the file in bytes, -1 on error.
    int64_t getSize();
    // The alignment in use for offsets and lengths (bytes; 0 while closed).
    unsigned int alignment() const { return alignment_; }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    int transfer(const char* method, const char* paramText, char* buf, int len, bool forWrite);
    bool moveBytes(const char* method, char* buf, size_t len, bool forWrite, size_t* done);
    bool writeBlocks(const char* method, const char* data, size_t len, int64_t at);
    void release();

    int64_t pos_;
    unsigned int alignment_;
    unsigned int memAlignment_;
    bool append_;
    char* bounce_;
};

}  // namespace orvane
