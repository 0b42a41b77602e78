#pragma once

#include <orvane/Tracer.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace orvane {
// Byte order: the host's, swapping, and integers read from and written to
// byte buffers in big-endian (network) or little-endian order.
//
//     uint32_t length = Endian::readBig<uint32_t>(frame + 2);     // any alignment
//     Endian::writeLittle<uint16_t>(out + 6, crc);
//     if (!Endian::readBig(frame, frameLen, 2, &length)) return false;  // checked
//
// T is any integer type of 1, 2, 4 or 8 bytes (signed ones keep their bit
// pattern). The unchecked readers and writers take any address (they copy
// with memcpy, so unaligned access is fine) and compile to one load or store
// plus at most one byte swap; the caller guarantees the bytes are there. The
// checked forms take the buffer size and an offset, and refuse a value that
// would not fit or a null pointer: false, nothing read or written, and one
// error line through Tracer::printAt in the static form, for example
// "<E><date> [readBig,L<n>] 4 bytes at offset 7 overruns a buffer of 10 bytes"
// or "<E><date> [writeBig,L<n>] null buffer or output" (<n> is a line of this
// header, not the caller's). Everything is static, inline and stateless: any
// thread may call it at any time.
//
// Write calls deduce T from the value: writeBig(buf, len, 0, 5) writes an
// int (4 bytes); say the width, writeBig<uint16_t>(...), when it matters.
class Endian {
  public:
    // True on a little-endian host.
    static constexpr bool isLittleHost() { return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__; }
    // True on a big-endian host.
    static constexpr bool isBigHost() { return __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__; }

    // v with its two bytes swapped.
    static constexpr uint16_t swap16(uint16_t v) { return __builtin_bswap16(v); }
    // v with its four bytes in reverse order.
    static constexpr uint32_t swap32(uint32_t v) { return __builtin_bswap32(v); }
    // v with its eight bytes in reverse order.
    static constexpr uint64_t swap64(uint64_t v) { return __builtin_bswap64(v); }
    // v with its bytes in reverse order, for any integer type of 1..8 bytes.
    template <typename T>
    static constexpr T swap(T v) {
        checkType<T>();
        using U = typename std::make_unsigned<T>::type;
        U u = static_cast<U>(v);
        if (sizeof(T) == 2) u = static_cast<U>(__builtin_bswap16(static_cast<uint16_t>(u)));
        if (sizeof(T) == 4) u = static_cast<U>(__builtin_bswap32(static_cast<uint32_t>(u)));
        if (sizeof(T) == 8) u = static_cast<U>(__builtin_bswap64(static_cast<uint64_t>(u)));
        return static_cast<T>(u);
    }

    // Host value to / from big-endian (network) or little-endian order:
    // a swap or nothing, depending on the host.
    template <typename T>
    static constexpr T toBig(T v) {
        return isLittleHost() ? swap(v) : v;
    }
    // Big-endian to host order.
    template <typename T>
    static constexpr T fromBig(T v) {
        return toBig(v);
    }
    // Host to little-endian order.
    template <typename T>
    static constexpr T toLittle(T v) {
        return isLittleHost() ? v : swap(v);
    }
    // Little-endian to host order.
    template <typename T>
    static constexpr T fromLittle(T v) {
        return toLittle(v);
    }

    // Unchecked: sizeof(T) bytes at p, any alignment.
    template <typename T>
    static T readBig(const void* p) {
        return fromBig(load<T>(p));
    }
    // Unchecked: the little-endian value at p, any alignment.
    template <typename T>
    static T readLittle(const void* p) {
        return fromLittle(load<T>(p));
    }
    // Unchecked: v stored big-endian at p, any alignment.
    template <typename T>
    static void writeBig(void* p, T v) {
        store(p, toBig(v));
    }
    // Unchecked: v stored little-endian at p, any alignment.
    template <typename T>
    static void writeLittle(void* p, T v) {
        store(p, toLittle(v));
    }

    // Checked: the value at buf[offset] within a buffer of `size` bytes.
    // False (logged, *out untouched / buffer untouched) when offset +
    // sizeof(T) exceeds size, or buf or out is null.
    template <typename T>
    static bool readBig(const void* buf, size_t size, size_t offset, T* out) {
        if (!fits(buf, out, size, offset, sizeof(T), "readBig")) return false;
        *out = readBig<T>(static_cast<const unsigned char*>(buf) + offset);
        return true;
    }
    // Checked little-endian read; see readBig.
    template <typename T>
    static bool readLittle(const void* buf, size_t size, size_t offset, T* out) {
        if (!fits(buf, out, size, offset, sizeof(T), "readLittle")) return false;
        *out = readLittle<T>(static_cast<const unsigned char*>(buf) + offset);
        return true;
    }
    // Checked: v stored big-endian at buf[offset]; false (logged, buffer untouched) when it does
    // not fit.
    template <typename T>
    static bool writeBig(void* buf, size_t size, size_t offset, T v) {
        if (!fits(buf, &v, size, offset, sizeof(T), "writeBig")) return false;
        writeBig<T>(static_cast<unsigned char*>(buf) + offset, v);
        return true;
    }
    // Checked: v stored little-endian at buf[offset]; false (logged, buffer untouched) when it does
    // not fit.
    template <typename T>
    static bool writeLittle(void* buf, size_t size, size_t offset, T v) {
        if (!fits(buf, &v, size, offset, sizeof(T), "writeLittle")) return false;
        writeLittle<T>(static_cast<unsigned char*>(buf) + offset, v);
        return true;
    }

  private:
    template <typename T>
    static constexpr void checkType() {
        static_assert(std::is_integral<T>::value && !std::is_same<T, bool>::value,
                      "Endian works on integer types");
        static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8,
                      "Endian works on integers of 1, 2, 4 or 8 bytes");
    }
    template <typename T>
    static T load(const void* p) {
        checkType<T>();
        T v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    template <typename T>
    static void store(void* p, T v) {
        checkType<T>();
        std::memcpy(p, &v, sizeof v);
    }
    static bool fits(const void* buf, const void* value, size_t size, size_t offset, size_t width,
                     const char* op) {
        if (buf != nullptr && value != nullptr && offset <= size && width <= size - offset) {
            return true;
        }
        if (buf == nullptr || value == nullptr) {
            Tracer::getInstance().printAt(3, nullptr, op, __LINE__, "null buffer or output");
        } else {
            Tracer::getInstance().printAt(3, nullptr, op, __LINE__,
                                          "%zu bytes at offset %zu overruns a buffer of %zu bytes",
                                          width, offset, size);
        }
        return false;
    }
};

}  // namespace orvane
