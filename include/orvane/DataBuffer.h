#pragma once

#include <orvane/Export.h>

#include <cstdint>
#include <mutex>
#include <string>

namespace orvane {

// Interface of the byte buffers. putData and getData copy bytes in and out
// and return how many they copied; no buffer ever overwrites unread data.
// The buffers log nothing.
class ORVANE_API DataBuffer {
  public:
    DataBuffer();
    virtual ~DataBuffer() = 0;

    // Allocates room for `size` bytes; false for a size below 1 or a failed
    // allocation. Whether a second call is allowed depends on the buffer.
    virtual bool init(int size) = 0;
    // Forgets the unread bytes.
    virtual void clear() = 0;
    // The storage size in bytes.
    virtual int capacity() = 0;
    // capacity() minus size(): the free bytes. LineBuffer's putData keeps one
    // of them free.
    virtual int space() = 0;
    // The unread bytes.
    virtual int size() = 0;
    // Stores bytes from `data`; returns the number stored.
    virtual int putData(char* data, int len) = 0;
    // Takes up to `len` unread bytes into `buf`; returns the number taken.
    virtual int getData(char* buf, int len) = 0;

  protected:
    // This class's own name; the buffers log nothing.
    std::string className;
};

// A linear buffer for text protocols. For lines, use takeLine(): it finds
// the terminator and takes the line in one locked step, with no offsets to
// compute.
//
// The lower-level way is find() (a line end, a keyword) and getData().
// Beware: find() counts its offset from the start of the storage, not from
// the first unread byte, and the unread bytes move under it:
// - putData of len bytes moves the unread bytes to the start of storage
//   first when len is at least the room behind the last stored byte;
// - a getData that takes the last unread byte rewinds both positions to the
//   start of storage.
// So an offset from find() is only good until the next putData or getData,
// and the length to take is find() + terminator length - (offset of the first
// unread byte), a position the class does not show.
//
// putData is all or nothing and keeps one byte free, so the buffer holds at
// most capacity - 1 bytes. init allocates once (calloc); a later init
// replaces the storage.
// One producer and one consumer thread may share it: every operation but
// capacity, find and operator[] holds the buffer's mutex; those three are
// unlocked and belong to the consumer thread.
class ORVANE_API LineBuffer : public DataBuffer {
  public:
    LineBuffer();
    ~LineBuffer() override;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;

    // Allocates `size` zero bytes; false for a size below 1 or a failed allocation.
    bool init(int size) override;
    // Zeroes the storage and rewinds both positions.
    void clear() override;
    int capacity() override;
    int space() override;
    int size() override;
    // Stores all `len` bytes and returns len, or stores nothing and returns 0
    // (no room, null data, len below 1, no storage).
    int putData(char* data, int len) override;
    // Takes up to `len` bytes; returns the number taken.
    int getData(char* buf, int len) override;
    // Offset from the start of storage of the first occurrence of the
    // `len`-byte pattern among the unread bytes, or -1.
    int find(char* pattern, int len);
    // The byte at `index` from the start of storage; 0 outside the storage.
    char operator[](int index);

    // Takes the first complete line among the unread bytes: the bytes up to
    // the first `terminator` go to *line without it (and without one '\r'
    // just before it when `dropCarriageReturn`), the terminator is consumed,
    // and the result is true. Without a complete line nothing is taken and
    // the result is false.
    // With `maxLength` above 0 no line comes out longer than maxLength bytes:
    // a longer one comes out in pieces of maxLength bytes, each as soon as the
    // bytes after it show that the line goes on; the last piece ends at the
    // terminator. Give the buffer a capacity of at least maxLength + 3 so
    // that a piece can always be told from a line.
    // False, *line untouched, for a null `line` or before init.
    // Holds the mutex; one copy into *line, which may allocate.
    bool takeLine(std::string* line, char terminator = '\n', bool dropCarriageReturn = true,
                  int maxLength = 0);

  private:
    std::mutex lock;
    char* storage;
    char* writePos;
    char* readPos;
    int capacity_;
};

// A circular buffer of fixed capacity that can be completely full. putData
// stores what fits and drops the rest (unread data is never overwritten);
// getData takes what is there. init allocates once and refuses a second call.
// One producer and one consumer thread may share it: putData, getData and
// clear hold the buffer's mutex; init, capacity, size and space do not.
class ORVANE_API RingBuffer : public DataBuffer {
  public:
    RingBuffer();
    ~RingBuffer() override;
    RingBuffer(const RingBuffer&) = delete;
    RingBuffer& operator=(const RingBuffer&) = delete;

    // False when storage exists already, for a size below 1, or when the
    // allocation fails.
    bool init(int size) override;
    // Forgets the unread bytes; capacity and storage stay.
    void clear() override;
    int capacity() override;
    int space() override;
    int size() override;
    // Stores min(space, len) bytes and returns that count (0 for len below 1
    // or null data).
    int putData(char* data, int len) override;
    // Takes min(size, len) bytes in order of arrival and returns that count.
    int getData(char* buf, int len) override;

  protected:
    // This class's own name; the buffers log nothing.
    std::string className;

  private:
    uint32_t readIndex;
    uint32_t writeIndex;
    uint32_t size_;
    uint32_t capacity_;
    char* storage;
    std::mutex lock;
};

// Walks a NUL-terminated text section by section. Only the first character
// of `sep` separates; an empty section (two separators in a row, or a
// separator first) ends the walk like the end of the text. Stateless: the
// operations are static and any thread may call them.
class ORVANE_API Parser {
  public:
    Parser();

    // The start of the section at text + *pos (not NUL-terminated; its length
    // goes to *len) and *pos advanced past it and its separator; null, with
    // *pos and *len unchanged, at the end of the walk or for null arguments.
    static const char* parseNextSection(const char* text, unsigned int* pos, const char* sep,
                                        unsigned int* len);
    // The next section copied into *out; false (and *out unchanged) at the end.
    static bool parseNextString(const char* text, unsigned int* pos, const char* sep,
                                std::string* out);
    // The next section converted with std::stoi; false at the end. A section
    // that does not start with a number throws std::invalid_argument, one
    // outside the int range std::out_of_range: std::stoi's exceptions reach
    // the caller.
    static bool parseNextInt(const char* text, unsigned int* pos, const char* sep, int* out);

  protected:
    // This class's own name; Parser logs nothing.
    std::string className;
};

}  // namespace orvane
