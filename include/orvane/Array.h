#pragma once

#include <orvane/Endian.h>
#include <orvane/Tracer.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

namespace orvane {

// Fixed-capacity containers for code that must not allocate once it runs:
// interrupt-like callbacks, real-time threads, buffers sized at compile time.
//
// Array<T, N> holds up to N elements of T inside the object itself (no heap,
// ever; sizeof is N * sizeof(T) plus two words). Its size grows from
// 0 to N by push and insert. Every access is checked: an index at or past
// size(), a push onto a full array or a pop from an empty one is refused
// with false (or a null pointer) and one error line through Tracer::printAt,
// for example "<E><date> [Array::push,L<n>] full (capacity 8)" (<n> is a line
// of this header, not the caller's), and the array is left as it was.
// Elements live in order from data() to data() + size(): begin()/end() make
// range-for and the standard algorithms work.
//
// Costs: push/pop/back O(1); insert and erase move the elements after the
// index, O(size). T must be nothrow move-constructible. Copying an Array
// copies its elements. Not thread-safe: guard a shared one with a mutex.
// (These containers name themselves "Array" / "ByteArray" in log lines
// through a compile-time className, not a std::string member, so that they
// stay allocation-free.)
template <typename T, size_t N>
class Array {
    static_assert(N > 0, "Array needs a capacity of at least 1");
    static_assert(std::is_nothrow_move_constructible<T>::value,
                  "Array elements must be nothrow move-constructible");

  public:
    // The class name printed in the log lines of an Array's refusals.
    static constexpr const char* className = "Array";

    Array() = default;
    // The first N values of `values`; more are refused (logged) and left out.
    Array(std::initializer_list<T> values) : Array(className, values) {}
    // Copies every element of `other`.
    Array(const Array& other) : logName_(other.logName_) {
        for (const T& v : other) new (slot(size_++)) T(v);
    }
    // Replaces the elements with copies of `other`'s.
    Array& operator=(const Array& other) {
        if (this != &other) {
            clear();
            for (const T& v : other) new (slot(size_++)) T(v);
        }
        return *this;
    }
    ~Array() { clear(); }

    // The number of elements.
    size_t size() const { return size_; }
    // N: the most elements the array holds.
    static constexpr size_t capacity() { return N; }
    // True when there are no elements.
    bool empty() const { return size_ == 0; }
    // True when size() is N.
    bool full() const { return size_ == N; }
    // Destroys every element; size() becomes 0.
    void clear() {
        while (size_ > 0) slot(--size_)->~T();
    }

    // Appends a copy of the value; false (logged) when full.
    bool push(const T& value) { return placeBack("push", value); }
    // Appends the moved value; false (logged) when full.
    bool push(T&& value) { return placeBack("push", std::move(value)); }
    // Appends a T built from args in place; false (logged) when full.
    template <typename... Args>
    bool emplace(Args&&... args) {
        return placeBack("emplace", std::forward<Args>(args)...);
    }
    // Removes the last element, moving it to *out when out is not null;
    // false (logged) when empty.
    bool pop(T* out = nullptr) {
        if (size_ == 0) return refuse("pop", "empty");
        T* last = slot(size_ - 1);
        if (out != nullptr) *out = std::move(*last);
        last->~T();
        --size_;
        return true;
    }
    // Inserts before position `index` (0..size(); size() appends), moving
    // the later elements up by one. False (logged) when full or index > size().
    bool insert(size_t index, T value) {
        if (size_ == N) return refuse("insert", "full (capacity %zu)", N);
        if (index > size_)
            return refuse("insert", "index %zu past the end (size %zu)", index, size_);
        new (slot(size_)) T(std::move(value));
        for (size_t i = size_; i > index; --i) std::swap(*slot(i), *slot(i - 1));
        ++size_;
        return true;
    }
    // Removes the element at `index`, moving the later ones down by one.
    // False (logged) when index >= size().
    bool erase(size_t index) {
        if (index >= size_)
            return refuse("erase", "index %zu out of range (size %zu)", index, size_);
        for (size_t i = index; i + 1 < size_; ++i) *slot(i) = std::move(*slot(i + 1));
        slot(--size_)->~T();
        return true;
    }

    // The element at `index`, or null (logged) when index >= size().
    T* at(size_t index) { return index < size_ ? slot(index) : outOfRange("at", index); }
    // The element at `index`, or null (logged) when index >= size().
    const T* at(size_t index) const {
        return index < size_ ? slot(index) : outOfRange("at", index);
    }
    // Copies the element at `index` to *out / overwrites it with value;
    // false (logged) when index >= size() or out is null.
    bool get(size_t index, T* out) const {
        if (out == nullptr) return refuse("get", "null output");
        if (index >= size_) return outOfRange("get", index) != nullptr;
        *out = *slot(index);
        return true;
    }
    // Overwrites the element at `index` with `value`; false (logged) when index >= size().
    bool set(size_t index, T value) {
        if (index >= size_) return outOfRange("set", index) != nullptr;
        *slot(index) = std::move(value);
        return true;
    }
    // The first element, or null (logged) when empty.
    T* front() { return size_ > 0 ? slot(0) : outOfRange("front", 0); }
    // The last element, or null (logged) when empty.
    T* back() { return size_ > 0 ? slot(size_ - 1) : outOfRange("back", 0); }

    // The first element's address; the elements are contiguous.
    T* data() { return slot(0); }
    // The first element's address; the elements are contiguous.
    const T* data() const { return slot(0); }
    // Iteration over the elements, first to last.
    T* begin() { return slot(0); }
    // Iteration over the elements, first to last.
    T* end() { return slot(size_); }
    // Iteration over the elements, first to last.
    const T* begin() const { return slot(0); }
    // Iteration over the elements, first to last.
    const T* end() const { return slot(size_); }

  protected:
    // An Array whose log lines print `logName` as the class name.
    Array(const char* logName, std::initializer_list<T> values) : logName_(logName) {
        for (const T& v : values) {
            if (!push(v)) break;
        }
    }
    // Logs `text` as an error of operation `op` under the array's log name; returns false.
    bool refuse(const char* op, const char* text) const {
        Tracer::getInstance().printAt(3, logName_, op, __LINE__, "%s", text);
        return false;
    }
    // Logs a printf-style line as an error of operation `op` under the array's log name; returns
    // false.
    template <typename First, typename... Args>
    bool refuse(const char* op, const char* fmt, First first, Args... args) const {
        Tracer::getInstance().printAt(3, logName_, op, __LINE__, fmt, first, args...);
        return false;
    }
    // The class name log lines print; ByteArray sets its own.
    const char* logName_ = className;

  private:
    template <typename... Args>
    bool placeBack(const char* op, Args&&... args) {
        if (size_ == N) return refuse(op, "full (capacity %zu)", N);
        new (slot(size_)) T(std::forward<Args>(args)...);
        ++size_;
        return true;
    }
    T* outOfRange(const char* op, size_t index) const {
        if (size_ == 0) {
            refuse(op, "index %zu out of range: empty", index);
        } else {
            refuse(op, "index %zu out of range (size %zu)", index, size_);
        }
        return nullptr;
    }
    T* slot(size_t i) { return std::launder(reinterpret_cast<T*>(storage_)) + i; }
    const T* slot(size_t i) const { return std::launder(reinterpret_cast<const T*>(storage_)) + i; }

    alignas(T) unsigned char storage_[N * sizeof(T)];
    size_t size_ = 0;
};

// Up to N bytes with the rules of Array<uint8_t, N>, plus the Endian readers
// and writers at offsets inside the bytes held, and appenders that grow it:
// a frame or register map built and parsed without the heap.
//
//     ByteArray<64> frame;
//     frame.appendBig<uint16_t>(0xA55A);
//     frame.appendLittle(payloadLength);          // T deduced from the value
//     uint16_t magic = 0;
//     if (!frame.readBig(0, &magic)) ...          // refused past size()
//
// Reads and writes at an offset stay within size() (not the capacity): a
// write there overwrites, an append grows. Refusals log "[ByteArray::<op>,L<n>]".
template <size_t N>
class ByteArray : public Array<uint8_t, N> {
  public:
    // The class name printed in the log lines of a ByteArray's refusals.
    static constexpr const char* className = "ByteArray";
    using Array<uint8_t, N>::size;

    ByteArray() : Array<uint8_t, N>(className, {}) {}
    // The first N bytes of `values`; more are refused (logged) and left out.
    ByteArray(std::initializer_list<uint8_t> values) : Array<uint8_t, N>(className, values) {}

    // Appends `len` bytes; false (logged, nothing appended) when they do not all fit.
    bool append(const void* bytes, size_t len) {
        if (bytes == nullptr && len > 0) return this->refuse("append", "null bytes");
        return appendBytes("append", bytes, len);
    }
    // Appends the integer in big-endian order; false (logged, nothing appended) when it does not
    // fit.
    template <typename T>
    bool appendBig(T v) {
        v = Endian::toBig(v);
        return appendBytes("appendBig", &v, sizeof v);
    }
    // Appends the integer in little-endian order; false (logged, nothing appended) when it does not
    // fit.
    template <typename T>
    bool appendLittle(T v) {
        v = Endian::toLittle(v);
        return appendBytes("appendLittle", &v, sizeof v);
    }
    // The integer at `offset`; false (logged, *out untouched) past size().
    template <typename T>
    bool readBig(size_t offset, T* out) const {
        if (!inside("readBig", offset, sizeof(T), out)) return false;
        *out = Endian::readBig<T>(this->data() + offset);
        return true;
    }
    // The little-endian integer at `offset`; false (logged, *out untouched) past size().
    template <typename T>
    bool readLittle(size_t offset, T* out) const {
        if (!inside("readLittle", offset, sizeof(T), out)) return false;
        *out = Endian::readLittle<T>(this->data() + offset);
        return true;
    }
    // Overwrites the bytes at `offset`; false (logged, nothing written) past size().
    template <typename T>
    bool writeBig(size_t offset, T v) {
        if (!inside("writeBig", offset, sizeof(T), &v)) return false;
        Endian::writeBig<T>(this->data() + offset, v);
        return true;
    }
    // Overwrites the bytes at `offset` with the little-endian integer; false (logged, nothing
    // written) past size().
    template <typename T>
    bool writeLittle(size_t offset, T v) {
        if (!inside("writeLittle", offset, sizeof(T), &v)) return false;
        Endian::writeLittle<T>(this->data() + offset, v);
        return true;
    }
    // The bytes held, as a string (allocates).
    std::string toString() const {
        return std::string(reinterpret_cast<const char*>(this->data()), size());
    }

  private:
    bool appendBytes(const char* op, const void* bytes, size_t len) {
        if (len > N - size()) return overrun(op, size(), len);
        for (size_t i = 0; i < len; ++i) this->push(static_cast<const uint8_t*>(bytes)[i]);
        return true;
    }
    bool inside(const char* op, size_t offset, size_t width, const void* value) const {
        if (value == nullptr) return this->refuse(op, "null output");
        if (offset <= size() && width <= size() - offset) return true;
        return overrun(op, offset, width);
    }
    bool overrun(const char* op, size_t offset, size_t width) const {
        return this->refuse(op, "%zu bytes at offset %zu overrun (size %zu, capacity %zu)", width,
                            offset, size(), N);
    }
};

}  // namespace orvane
