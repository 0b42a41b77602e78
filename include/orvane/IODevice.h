#pragma once

#include <orvane/Export.h>
#include <orvane/UniqueFd.h>

#include <memory>
#include <string>

namespace orvane {

// Open modes of IODevice::open and File::open. The two accept different
// sets: IODevice::open refuses IO_APPEND_READ, File::open refuses IO_APPEND.
enum IOMode {
    IO_READ = 0,           // O_RDONLY                       / "rb"
    IO_WRITE = 1,          // O_WRONLY                       / "rb+" (read-write stream)
    IO_READ_WRITE = 2,     // O_RDWR                         / "rb+"
    IO_APPEND = 3,         // O_RDWR | O_APPEND              / refused by File
    IO_TRUNCATE = 4,       // O_RDWR | O_CREAT | O_TRUNC     / "wb" (write-only stream)
    IO_CREATE = 5,         // O_RDWR | O_CREAT               / "wb+"
    IO_CREATE_APPEND = 6,  // O_RDWR | O_CREAT | O_APPEND    / "ab"
    IO_APPEND_READ = 7     // refused by IODevice            / "ab+"
};

// Base of every device reached through one descriptor opened by name (files,
// serial ports, pipes). Owns the descriptor, the name and mode it was opened
// with and an optional write-merge buffer that derived classes fill.
//
// Failures are logged once and reported by result: false, -1 (error) or -2
// (timeout of recvData/sendData). Nothing locks: one thread at a time uses an
// object. recvData/sendData block the caller for at most their timeout.
// Inherited operations log with the class tag "IODevice", also on a derived
// object. Descriptor 0 counts as closed for close() and isOpen(), though the
// data calls accept it: a device that got descriptor 0 (possible only when
// standard input was closed) never closes it, not even in its destructor,
// and refuses a second open().
class ORVANE_API IODevice {
  public:
    IODevice();
    // Runs IODevice::close (not an override) and releases the write-merge
    // buffer; a descriptor 0 stays open, as close() leaves it.
    virtual ~IODevice();
    IODevice(const IODevice&) = delete;
    IODevice& operator=(const IODevice&) = delete;

    // Opens `name` with an IOMode `mode`; false (logged) when already open or the open fails. The
    // base opens with open(2); File opens a stream.
    virtual bool open(const std::string& name, int mode);
    // Flushes through the virtual flush(), then closes. Always true.
    virtual bool close();
    // One read()/write(): the byte count or -1.
    virtual int readData(char* buf, int len);
    // One write() (through the write-merge buffer when it has one): the byte count or -1.
    virtual int writeData(const char* data, int len);
    // Waits up to timeoutUs (negative: without limit) for readiness, then one
    // read()/write(). The byte count, -1 on error, -2 on timeout.
    virtual int recvData(char* buf, int len, int timeoutUs);
    // Waits up to timeoutUs (negative: without limit) until writable, then one write(): the byte
    // count, -1 on error, -2 on timeout.
    virtual int sendData(const char* data, int len, int timeoutUs);
    // Adds status flags (F_SETFL); flags are never removed.
    virtual bool setFlags(int flags);
    // The descriptor's status flags (F_GETFL) into *flags; false for a null pointer or a failed
    // call (logged).
    virtual bool getFlags(int* flags);
    // The descriptor, or -1 when closed.
    virtual int fd() { return fd_.get(); }
    // True while a descriptor above 0 is held.
    virtual bool isOpen() { return fd_.isAbove(0); }
    // Closes and opens again with the last name and mode.
    virtual bool reopen();
    // fsync() of the descriptor.
    virtual void flush();
    // The current offset; -1 when closed (logged), lseek fails, or long cannot hold it (logged).
    virtual long getPos();
    // Moves to offset `pos` from the start; the new offset, or -1 (logged).
    virtual long setPos(long pos);
    // Not supported by the base (logged warning, false); File sets the stream's buffer.
    virtual bool setIOBuffer(unsigned int size);

    // Capacity of the write-merge buffer: a multiple of 4096, set once, while
    // closed; the derived class's open allocates it. 0 leaves it unbuffered.
    bool setWMBuffer(unsigned int size);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The name the device was opened with.
    std::string devName;
    // The device's descriptor (close-on-exec).
    UniqueFd fd_;
    // The IOMode the device was opened with.
    int ioMode;
    // True when opened for direct I/O (O_DIRECT).
    bool directIO;
    // Capacity of the write-merge buffer, 0 for none.
    unsigned int wmSize;
    // Bytes waiting in the write-merge buffer.
    unsigned int wmFill;
    // The write-merge buffer; empty when unbuffered.
    std::unique_ptr<char[]> wmBuffer;

  private:
    int transfer(const char* method, const char* paramText, char* buf, int len, bool forWrite,
                 bool wait, int timeoutUs);
};

}  // namespace orvane
