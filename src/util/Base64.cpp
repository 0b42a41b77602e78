#include <orvane/Base64.h>

#include <cstdint>
#include <cstring>

#include "log/LogLine.h"

namespace orvane {

namespace {

const char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char kUrlSafe[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr uint8_t kBad = 0x80;
constexpr size_t kLineLength = 76;

// Character -> 6-bit value, kBad for characters outside the alphabet.
struct DecodeTable {
    uint8_t value[256];
    explicit DecodeTable(const char* alphabet) {
        memset(value, kBad, sizeof value);
        for (uint8_t i = 0; i < 64; ++i) value[static_cast<uint8_t>(alphabet[i])] = i;
    }
};

const uint8_t* decodeTable(unsigned options) {
    static const DecodeTable standard(kStandard);
    static const DecodeTable urlSafe(kUrlSafe);
    return (options & Base64::UrlSafe) ? urlSafe.value : standard.value;
}

bool wraps(unsigned options) { return (options & (Base64::Wrap76 | Base64::Wrap76Crlf)) != 0; }

size_t unwrappedLength(size_t len, unsigned options) {
    if (len % 3 == 0 || !(options & Base64::NoPadding)) return (len + 2) / 3 * 4;
    return len / 3 * 4 + len % 3 + 1;
}

// Decodes `count` alphabet characters (no padding, count % 4 != 1) into
// out; false at the first character outside the alphabet or when the last
// character carries bits that do not belong to any byte.
bool decodeChars(const char* text, size_t count, const uint8_t* table, char* out) {
    const uint8_t* in = reinterpret_cast<const uint8_t*>(text);
    size_t whole = count / 4;
    for (size_t g = 0; g < whole; ++g, in += 4, out += 3) {
        uint32_t a = table[in[0]], b = table[in[1]], c = table[in[2]], d = table[in[3]];
        if ((a | b | c | d) & kBad) return false;
        uint32_t v = a << 18 | b << 12 | c << 6 | d;
        out[0] = static_cast<char>(v >> 16);
        out[1] = static_cast<char>(v >> 8);
        out[2] = static_cast<char>(v);
    }
    size_t rest = count % 4;
    if (rest == 0) return true;
    uint32_t a = table[in[0]], b = table[in[1]], c = rest == 3 ? table[in[2]] : 0;
    if ((a | b | c) & kBad) return false;
    uint32_t v = a << 18 | b << 12 | c << 6;
    out[0] = static_cast<char>(v >> 16);
    if (rest == 3) out[1] = static_cast<char>(v >> 8);
    return (rest == 2 ? (b & 0x0F) : (c & 0x03)) == 0;
}

// Finds why `text` was refused and logs it in one line: the first
// character that may not stand where it does, else the length, else the
// unused bits of the last character.
void logRefusal(const std::string& text, unsigned options) {
    const uint8_t* table = decodeTable(options);
    bool padding = !(options & Base64::NoPadding);
    size_t chars = 0;
    size_t pads = 0;
    size_t last = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        uint8_t c = static_cast<uint8_t>(text[i]);
        if ((c == '\r' || c == '\n') && wraps(options)) continue;
        bool fits = pads == 0 ? (table[c] != kBad || (c == '=' && padding)) : c == '=';
        if (!fits || (c == '=' && (pads == 2 || chars % 4 < 2))) {
            ORVANE_SERROR_IN("decode", "bad base64 character 0x%02x at offset %zu", c, i);
            return;
        }
        if (c == '=') {
            ++pads;
        } else {
            ++chars;
            last = i;
        }
    }
    if ((chars + pads) % (padding ? 4 : 1) != 0 || chars % 4 == 1) {
        ORVANE_SERROR_IN("decode", "bad base64 length: %zu characters", chars + pads);
        return;
    }
    ORVANE_SERROR_IN("decode", "unused bits set in the last base64 character at offset %zu", last);
}

}  // namespace

size_t Base64::encodedLength(size_t len, unsigned options) {
    size_t chars = unwrappedLength(len, options);
    if (!wraps(options) || chars == 0) return chars;
    size_t lineEnd = (options & Wrap76Crlf) ? 2 : 1;
    return chars + (chars - 1) / kLineLength * lineEnd;
}

std::string Base64::encode(const void* data, size_t len, unsigned options) {
    if (data == nullptr && len > 0) {
        ORVANE_SERROR("null data of %zu bytes", len);
        return std::string();
    }
    const char* alphabet = (options & UrlSafe) ? kUrlSafe : kStandard;
    const uint8_t* in = static_cast<const uint8_t*>(data);
    // Written straight into the result: a line of 76 characters is 19
    // groups, and a line end goes before each group that starts a line.
    std::string out(encodedLength(len, options), '=');
    char* o = &out[0];
    const size_t lineGroups = wraps(options) ? kLineLength / 4 : SIZE_MAX;
    const char* lineEnd = (options & Wrap76Crlf) ? "\r\n" : "\n";
    size_t onLine = 0;
    auto startGroup = [&] {
        if (onLine++ < lineGroups) return;
        for (const char* e = lineEnd; *e != '\0'; ++e) *o++ = *e;
        onLine = 1;
    };
    size_t whole = len / 3;
    for (size_t g = 0; g < whole; ++g, in += 3, o += 4) {
        startGroup();
        uint32_t v = uint32_t(in[0]) << 16 | uint32_t(in[1]) << 8 | in[2];
        o[0] = alphabet[v >> 18];
        o[1] = alphabet[(v >> 12) & 63];
        o[2] = alphabet[(v >> 6) & 63];
        o[3] = alphabet[v & 63];
    }
    if (len % 3 > 0) {
        startGroup();
        uint32_t v = uint32_t(in[0]) << 16 | (len % 3 == 2 ? uint32_t(in[1]) << 8 : 0);
        o[0] = alphabet[v >> 18];
        o[1] = alphabet[(v >> 12) & 63];
        if (len % 3 == 2) o[2] = alphabet[(v >> 6) & 63];
    }
    return out;
}

std::string Base64::encode(const std::string& data, unsigned options) {
    return encode(data.data(), data.size(), options);
}

std::string Base64::decode(const std::string& text, unsigned options) {
    std::string out;
    decode(text, &out, options);
    return out;
}

bool Base64::decode(const std::string& text, std::string* out, unsigned options) {
    if (out == nullptr) {
        ORVANE_SERROR("null output");
        return false;
    }
    const std::string* chars = &text;
    std::string unwrapped;
    if (wraps(options) && text.find_first_of("\r\n") != std::string::npos) {
        unwrapped.reserve(text.size());
        for (char c : text) {
            if (c != '\r' && c != '\n') unwrapped += c;
        }
        chars = &unwrapped;
    }
    size_t n = chars->size();
    size_t pads = 0;
    if (!(options & NoPadding)) {
        while (pads < n && pads < 3 && (*chars)[n - 1 - pads] == '=') ++pads;
    }
    bool shapeOk = ((options & NoPadding) || n % 4 == 0) && pads <= 2 && (n - pads) % 4 != 1;
    std::string bytes((n - pads) / 4 * 3 + ((n - pads) % 4 == 0 ? 0 : (n - pads) % 4 - 1), '\0');
    if (!shapeOk || !decodeChars(chars->data(), n - pads, decodeTable(options), &bytes[0])) {
        logRefusal(text, options);
        return false;
    }
    out->swap(bytes);
    return true;
}

}  // namespace orvane
