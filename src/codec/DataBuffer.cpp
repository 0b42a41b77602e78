#include <orvane/DataBuffer.h>
#include <orvane/StrUtil.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "codec/ByteCopy.h"

namespace orvane {

DataBuffer::DataBuffer() : className("DataBuffer") {}

DataBuffer::~DataBuffer() = default;

LineBuffer::LineBuffer() : storage(nullptr), writePos(nullptr), readPos(nullptr), capacity_(0) {
    className = "LineBuffer";
}

LineBuffer::~LineBuffer() { free(storage); }

bool LineBuffer::init(int size) {
    std::lock_guard<std::mutex> guard(lock);
    if (size <= 0) return false;
    char* fresh = static_cast<char*>(calloc(static_cast<size_t>(size), 1));
    if (fresh == nullptr) return false;
    free(storage);
    storage = fresh;
    capacity_ = size;
    readPos = writePos = storage;
    return true;
}

void LineBuffer::clear() {
    std::lock_guard<std::mutex> guard(lock);
    if (storage == nullptr) return;
    memset(storage, 0, static_cast<size_t>(capacity_));
    readPos = writePos = storage;
}

int LineBuffer::capacity() { return capacity_; }

int LineBuffer::size() {
    std::lock_guard<std::mutex> guard(lock);
    return static_cast<int>(writePos - readPos);
}

int LineBuffer::space() {
    std::lock_guard<std::mutex> guard(lock);
    return capacity_ - static_cast<int>(writePos - readPos);
}

int LineBuffer::putData(char* data, int len) {
    if (data == nullptr || len <= 0) return 0;
    std::lock_guard<std::mutex> guard(lock);
    int unread = static_cast<int>(writePos - readPos);
    if (capacity_ - unread <= len) return 0;
    if (len >= static_cast<int>(storage + capacity_ - writePos)) {
        memmove(storage, readPos, static_cast<size_t>(unread));
        readPos = storage;
        writePos = storage + unread;
    }
    detail::copyBytes(writePos, data, static_cast<size_t>(len));
    writePos += len;
    return len;
}

int LineBuffer::getData(char* buf, int len) {
    if (buf == nullptr || len <= 0) return 0;
    std::lock_guard<std::mutex> guard(lock);
    int unread = static_cast<int>(writePos - readPos);
    if (unread == 0) return 0;
    int n = unread < len ? unread : len;
    detail::copyBytes(buf, readPos, static_cast<size_t>(n));
    readPos += n;
    if (readPos == writePos) readPos = writePos = storage;
    return n;
}

int LineBuffer::find(char* pattern, int len) {
    const char* hit =
        StrUtil::memString(readPos, static_cast<int>(writePos - readPos), pattern, len);
    return hit != nullptr ? static_cast<int>(hit - storage) : -1;
}

bool LineBuffer::takeLine(std::string* line, char terminator, bool dropCarriageReturn,
                          int maxLength) {
    if (line == nullptr) return false;
    std::lock_guard<std::mutex> guard(lock);
    if (storage == nullptr) return false;
    size_t unread = static_cast<size_t>(writePos - readPos);
    const char* end = static_cast<const char*>(memchr(readPos, terminator, unread));
    // Without a terminator the line so far is all unread bytes, none consumed.
    size_t length = end != nullptr ? static_cast<size_t>(end - readPos) : unread;
    size_t taken = length + 1;
    if (end != nullptr && dropCarriageReturn && length > 0 && readPos[length - 1] == '\r') {
        --length;
    }
    size_t limit = maxLength > 0 ? static_cast<size_t>(maxLength) : SIZE_MAX;
    if (length > limit) {
        // The line is longer than a piece once a byte past the limit is part
        // of it: a lone '\r' there may still be the start of the line's end.
        bool longer =
            end != nullptr || length > limit + 1 || !(dropCarriageReturn && readPos[limit] == '\r');
        if (!longer) return false;
        length = taken = limit;
    } else if (end == nullptr) {
        return false;
    }
    line->assign(readPos, length);
    readPos += taken;
    if (readPos == writePos) readPos = writePos = storage;
    return true;
}

char LineBuffer::operator[](int index) {
    if (index < 0 || index >= capacity_) return 0;
    return storage[index];
}

RingBuffer::RingBuffer()
    : className("RingBuffer"),
      readIndex(0),
      writeIndex(0),
      size_(0),
      capacity_(0),
      storage(nullptr) {}

RingBuffer::~RingBuffer() { delete[] storage; }

bool RingBuffer::init(int size) {
    if (storage != nullptr || size <= 0) return false;
    storage = new (std::nothrow) char[static_cast<size_t>(size)]();
    if (storage == nullptr) return false;
    capacity_ = static_cast<uint32_t>(size);
    return true;
}

void RingBuffer::clear() {
    std::lock_guard<std::mutex> guard(lock);
    readIndex = writeIndex = size_ = 0;
}

int RingBuffer::capacity() { return static_cast<int>(capacity_); }

int RingBuffer::size() { return static_cast<int>(size_); }

int RingBuffer::space() { return static_cast<int>(capacity_ - size_); }

int RingBuffer::putData(char* data, int len) {
    if (data == nullptr || len <= 0) return 0;
    std::lock_guard<std::mutex> guard(lock);
    int room = static_cast<int>(capacity_ - size_);
    uint32_t n = static_cast<uint32_t>(room < len ? room : len);
    if (n == 0) return 0;
    uint32_t tail = capacity_ - writeIndex;
    if (n > tail) {
        detail::copyBytes(storage + writeIndex, data, tail);
        detail::copyBytes(storage, data + tail, n - tail);
        writeIndex = n - tail;
    } else {
        detail::copyBytes(storage + writeIndex, data, n);
        writeIndex += n;
        if (writeIndex == capacity_) writeIndex = 0;
    }
    size_ += n;
    return static_cast<int>(n);
}

int RingBuffer::getData(char* buf, int len) {
    if (buf == nullptr || len <= 0) return 0;
    std::lock_guard<std::mutex> guard(lock);
    uint32_t n = size_ < static_cast<uint32_t>(len) ? size_ : static_cast<uint32_t>(len);
    if (n == 0) return 0;
    uint32_t tail = capacity_ - readIndex;
    if (n > tail) {
        detail::copyBytes(buf, storage + readIndex, tail);
        detail::copyBytes(buf + tail, storage, n - tail);
        readIndex = n - tail;
    } else {
        detail::copyBytes(buf, storage + readIndex, n);
        readIndex += n;
        if (readIndex == capacity_) readIndex = 0;
    }
    size_ -= n;
    return static_cast<int>(n);
}

Parser::Parser() : className("Parser") {}

const char* Parser::parseNextSection(const char* text, unsigned int* pos, const char* sep,
                                     unsigned int* len) {
    if (text == nullptr || pos == nullptr || sep == nullptr || len == nullptr) return nullptr;
    const char separator = sep[0];
    const char* p = text + *pos;
    if (*p == '\0' || *p == separator) return nullptr;
    const char* q = p;
    while (*q != '\0' && *q != separator) ++q;
    *len = static_cast<unsigned int>(q - p);
    // Past the separator, but never past the terminating NUL.
    *pos += *len + (*q != '\0' ? 1 : 0);
    return p;
}

bool Parser::parseNextString(const char* text, unsigned int* pos, const char* sep,
                             std::string* out) {
    if (out == nullptr) return false;
    unsigned int len = 0;
    const char* section = parseNextSection(text, pos, sep, &len);
    if (section == nullptr || len == 0) return false;
    out->assign(section, len);
    return true;
}

bool Parser::parseNextInt(const char* text, unsigned int* pos, const char* sep, int* out) {
    std::string section;
    if (out == nullptr || !parseNextString(text, pos, sep, &section)) return false;
    *out = std::stoi(section);
    return true;
}

}  // namespace orvane
