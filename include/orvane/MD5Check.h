#pragma once

#include <orvane/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace orvane {

// MD5 digests (RFC 1321) of strings, byte ranges and files, and the check
// of a file against an expected digest, as before installing a firmware
// image. MD5 detects corruption, not tampering: use it where the digest
// comes from a trusted place.
//
//     if (!MD5Check::checkFile("/tmp/fw.bin", expectedHex)) return false;   // logged
//     std::string hex = MD5Check::hexOf("abc");  // "900150983cd24fb0d6963f7d28e17f72"
//
//     MD5Check md5;                       // incremental: any number of updates
//     md5.update(header, headerLen);
//     md5.updateFile(path);
//     MD5Check::Digest d = md5.finish(); // then ready for a new message
//
// Files are read in 64 KiB blocks through one heap buffer per call, never
// whole; their digest equals md5sum's. Hashing runs at about the speed of
// md5sum (several hundred MB/s on a desktop core). Failures (a file that
// cannot be opened or read, an expected digest that is not 32 hex digits, a
// mismatch) give false or "" and one logged line. An object is used by one
// thread at a time; the static operations may be called from any thread.
class ORVANE_API MD5Check {
  public:
    // An MD5 digest: 16 bytes.
    using Digest = std::array<uint8_t, 16>;

    MD5Check();

    // Starts a new message, dropping what was added.
    void reset();
    // Adds bytes to the message. A null data with len > 0 is refused (logged).
    void update(const void* data, size_t len);
    // Adds the bytes of a string.
    void update(const std::string& data);
    // Adds a file's content, read in blocks. False (logged) when it cannot
    // be opened or read; the bytes read before a read error stay added.
    bool updateFile(const std::string& path);
    // The digest of everything added since construction or the last
    // reset/finish; the object then starts a new message.
    Digest finish();
    // finish() as 32 lower-case hexadecimal digits.
    std::string finishHex();

    // The digest of `len` bytes at `data`, in one call.
    static Digest digestOf(const void* data, size_t len);
    // The digest of a string's bytes.
    static Digest digestOf(const std::string& data);
    // digestOf() as 32 lower-case hexadecimal digits.
    static std::string hexOf(const void* data, size_t len);
    // digestOf() of a string as 32 lower-case hexadecimal digits.
    static std::string hexOf(const std::string& data);
    // The digest of a file's content; false (logged) when it cannot be read.
    static bool digestFile(const std::string& path, Digest* out);
    // digestFile as hex; "" (logged) when the file cannot be read.
    static std::string hexOfFile(const std::string& path);
    // True when the file's digest equals `expectedHex` (32 hex digits,
    // either case). False, with one logged line, on a mismatch (both digests
    // in the line), a malformed expected digest or an unreadable file.
    static bool checkFile(const std::string& path, const std::string& expectedHex);
    // 32 lower-case hexadecimal digits.
    static std::string toHex(const Digest& digest);
    // Parses 32 hex digits (either case); false (logged) for anything else.
    static bool fromHex(const std::string& hex, Digest* out);

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    void transform(const uint8_t* blocks, size_t count);

    uint32_t state_[4];
    uint64_t length_;  // bytes added so far
    uint8_t pending_[64];
};

}  // namespace orvane
