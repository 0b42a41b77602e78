#include <orvane/StrUtil.h>

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <system_error>

#include "log/LogLine.h"

namespace orvane {

std::string StrUtil::format(const char* fmt, ...) {
    if (fmt == nullptr) return std::string();
    char small[256];
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    int n = vsnprintf(small, sizeof small, fmt, args);
    va_end(args);
    std::string out;
    if (n > 0 && static_cast<size_t>(n) < sizeof small) {
        out.assign(small, static_cast<size_t>(n));
    } else if (n > 0) {
        out.resize(static_cast<size_t>(n));
        vsnprintf(&out[0], out.size() + 1, fmt, again);
    }
    va_end(again);
    return out;
}

std::string StrUtil::findString(const std::string& s, const std::string& open,
                                const std::string& close) {
    size_t begin = s.find(open);
    if (begin == std::string::npos) return std::string();
    size_t end = s.find(close, begin + open.size());
    if (end == std::string::npos) return std::string();
    return s.substr(begin, end + close.size() - begin);
}

std::string StrUtil::hexView(const std::string& data) {
    return hexView(data.data(), static_cast<int>(data.size()));
}

std::string StrUtil::hexView(const char* data, int len) {
    static const char digits[] = "0123456789ABCDEF";
    if (data == nullptr || len <= 0) return std::string();
    std::string out(static_cast<size_t>(len) * 3, ' ');
    for (int i = 0; i < len; ++i) {
        unsigned char byte = static_cast<unsigned char>(data[i]);
        out[static_cast<size_t>(i) * 3] = digits[byte >> 4];
        out[static_cast<size_t>(i) * 3 + 1] = digits[byte & 0x0F];
    }
    return out;
}

std::vector<std::string> StrUtil::splitString(const std::string& s, const std::string& sep,
                                              bool dropEmpty) {
    std::vector<std::string> pieces;
    auto keep = [&](size_t from, size_t to) {
        if (to > from || !dropEmpty) pieces.emplace_back(s, from, to - from);
    };
    if (sep.empty()) {
        keep(0, s.size());
        return pieces;
    }
    size_t begin = 0;
    for (size_t at = s.find(sep); at != std::string::npos; at = s.find(sep, begin)) {
        keep(begin, at);
        begin = at + sep.size();
    }
    keep(begin, s.size());
    return pieces;
}

const char* StrUtil::memString(const char* data, int len, const char* pattern, int patternLen) {
    if (data == nullptr || pattern == nullptr || len <= 0 || patternLen <= 0) return nullptr;
    // The first match; once a candidate would run past the end no later one
    // fits either, so this is the C library's memmem.
    return static_cast<const char*>(
        memmem(data, static_cast<size_t>(len), pattern, static_cast<size_t>(patternLen)));
}

std::string StrUtil::join(const std::vector<std::string>& pieces, const std::string& sep) {
    std::string out;
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0) out += sep;
        out += pieces[i];
    }
    return out;
}

namespace {

const char kBlanks[] = " \t\n\v\f\r";

// The digits of `text` for base `base` after an optional sign and "0x"
// prefix: sets *negative, *digitsAt and the effective base. False when the
// base is not one from_chars takes.
bool numberStart(const std::string& text, int base, bool* negative, size_t* digitsAt,
                 int* effectiveBase) {
    size_t at = 0;
    *negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        *negative = text[at] == '-';
        ++at;
    }
    bool hexPrefix =
        text.size() > at + 2 && text[at] == '0' && (text[at + 1] == 'x' || text[at + 1] == 'X');
    if (base == 0) base = hexPrefix ? 16 : 10;
    if (base < 2 || base > 36) return false;
    if (base == 16 && hexPrefix) at += 2;
    *digitsAt = at;
    *effectiveBase = base;
    return true;
}

// Whole-text integer conversion shared by the four integer forms; logs as `op`.
template <typename T>
bool parseInteger(const char* op, const std::string& text, T* out, int base) {
    if (out == nullptr) {
        ORVANE_SERROR_IN(op, "null output for \"%s\"", text.c_str());
        return false;
    }
    bool negative = false;
    size_t at = 0;
    if (!numberStart(text, base, &negative, &at, &base)) {
        ORVANE_SERROR_IN(op, "bad number base %d", base);
        return false;
    }
    if (negative && std::is_unsigned<T>::value) {
        ORVANE_SERROR_IN(op, "negative value \"%s\" for an unsigned number", text.c_str());
        return false;
    }
    // Digits go through the unsigned type, so the most negative value fits.
    using U = typename std::make_unsigned<T>::type;
    U magnitude = 0;
    const char* first = text.data() + at;
    const char* last = text.data() + text.size();
    // A second sign, or no digits at all, leaves ptr short of the end: the
    // unsigned form takes neither '+' nor '-'.
    auto result = std::from_chars(first, last, magnitude, base);
    if (first == last || result.ptr != last) {
        ORVANE_SERROR_IN(op, "not a base-%d number: \"%s\"", base, text.c_str());
        return false;
    }
    U limit = negative ? static_cast<U>(std::numeric_limits<T>::max()) + 1
                       : static_cast<U>(std::numeric_limits<T>::max());
    if (result.ec == std::errc::result_out_of_range || magnitude > limit) {
        ORVANE_SERROR_IN(op, "number out of range: \"%s\"", text.c_str());
        return false;
    }
    *out = negative ? static_cast<T>(U(0) - magnitude) : static_cast<T>(magnitude);
    return true;
}

}  // namespace

std::string StrUtil::trim(const std::string& s) { return trimRight(trimLeft(s)); }

std::string StrUtil::trimLeft(const std::string& s) {
    size_t first = s.find_first_not_of(kBlanks);
    return first == std::string::npos ? std::string() : s.substr(first);
}

std::string StrUtil::trimRight(const std::string& s) {
    size_t last = s.find_last_not_of(kBlanks);
    return last == std::string::npos ? std::string() : s.substr(0, last + 1);
}

std::string StrUtil::toUpper(const std::string& s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
}

std::string StrUtil::toLower(const std::string& s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

bool StrUtil::startsWith(const std::string& s, const std::string& prefix) {
    return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

bool StrUtil::endsWith(const std::string& s, const std::string& suffix) {
    return s.size() >= suffix.size() &&
           s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string StrUtil::replaceAll(const std::string& s, const std::string& from,
                                const std::string& to) {
    if (from.empty()) return s;
    std::string out;
    size_t begin = 0;
    for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, begin)) {
        out.append(s, begin, at - begin);
        out += to;
        begin = at + from.size();
    }
    out.append(s, begin, std::string::npos);
    return out;
}

bool StrUtil::toInt(const std::string& text, int* out, int base) {
    return parseInteger("toInt", text, out, base);
}

bool StrUtil::toUInt(const std::string& text, unsigned int* out, int base) {
    return parseInteger("toUInt", text, out, base);
}

bool StrUtil::toInt64(const std::string& text, int64_t* out, int base) {
    return parseInteger("toInt64", text, out, base);
}

bool StrUtil::toUInt64(const std::string& text, uint64_t* out, int base) {
    return parseInteger("toUInt64", text, out, base);
}

bool StrUtil::toIntInRange(const std::string& text, int minValue, int maxValue, int* out,
                           int base) {
    int value = 0;
    if (!parseInteger("toIntInRange", text, &value, base)) return false;
    if (value < minValue || value > maxValue) {
        ORVANE_SERROR("%d is outside [%d, %d]", value, minValue, maxValue);
        return false;
    }
    *out = value;
    return true;
}

bool StrUtil::toDouble(const std::string& text, double* out) {
    if (out == nullptr) {
        ORVANE_SERROR("null output for \"%s\"", text.c_str());
        return false;
    }
    const char* first = text.data();
    const char* last = first + text.size();
    if (first < last && *first == '+' && last - first > 1 && first[1] != '-') ++first;
    double value = 0;
    auto result = std::from_chars(first, last, value, std::chars_format::general);
    if (first == last || result.ptr != last || !std::isfinite(value)) {
        ORVANE_SERROR("not a number: \"%s\"", text.c_str());
        return false;
    }
    if (result.ec == std::errc::result_out_of_range) {
        ORVANE_SERROR("number out of range: \"%s\"", text.c_str());
        return false;
    }
    *out = value;
    return true;
}

std::string StrUtil::doubleToString(double value, int decimals) {
    char text[400];
    std::to_chars_result result =
        decimals < 0 ? std::to_chars(text, text + sizeof text, value)
                     : std::to_chars(text, text + sizeof text, value, std::chars_format::fixed,
                                     decimals > 60 ? 60 : decimals);
    if (result.ec != std::errc()) return std::string();
    return std::string(text, result.ptr);
}

std::string StrUtil::toHex(const std::string& bytes, bool upperCase) {
    const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string out(bytes.size() * 2, '0');
    for (size_t i = 0; i < bytes.size(); ++i) {
        unsigned char byte = static_cast<unsigned char>(bytes[i]);
        out[2 * i] = digits[byte >> 4];
        out[2 * i + 1] = digits[byte & 0x0F];
    }
    return out;
}

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

bool StrUtil::fromHex(const std::string& text, std::string* out) {
    if (out == nullptr) {
        ORVANE_SERROR("null output");
        return false;
    }
    std::string bytes;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ' ' || text[i] == '\t' || text[i] == '\r' || text[i] == '\n') continue;
        int high = hexDigit(text[i]);
        int low = i + 1 < text.size() ? hexDigit(text[i + 1]) : -2;
        if (high < 0 || low < 0) {
            size_t bad = high < 0 ? i : i + 1;
            if (low == -2) {
                ORVANE_SERROR("lone hex digit at the end of \"%s\"", text.c_str());
            } else {
                ORVANE_SERROR("bad hex character 0x%02x at offset %zu",
                              static_cast<unsigned char>(text[bad]), bad);
            }
            return false;
        }
        bytes.push_back(static_cast<char>(high << 4 | low));
        ++i;
    }
    out->swap(bytes);
    return true;
}

std::string StrUtil::humanSize(uint64_t bytes) {
    static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) return format("%u B", static_cast<unsigned>(bytes));
    // Tenths of the unit, in integers, rounded half up; a value that rounds
    // to 1024.0 moves to the next unit.
    size_t unit = 1;
    uint64_t scale = 1024;
    while (unit < 6 && bytes / scale >= 1024) {
        scale <<= 10;
        ++unit;
    }
    // (bytes * 10 + unitSize / 2) / unitSize without overflow, in 64 bits on
    // every target (32-bit ones have no 128-bit integer): the whole units
    // times ten, plus the rest's tenths. unitSize is a power of two from 1024
    // to 2^60, so halving both sides of the rest's division keeps its value
    // and its numerator below 2^63.
    auto tenthsOf = [bytes](uint64_t unitSize) {
        uint64_t rest = bytes % unitSize;
        return bytes / unitSize * 10 + (rest * 5 + unitSize / 4) / (unitSize / 2);
    };
    uint64_t tenths = tenthsOf(scale);
    if (tenths >= 10240 && unit < 6) {
        ++unit;
        tenths = tenthsOf(scale << 10);
    }
    return format("%llu.%u %s", static_cast<unsigned long long>(tenths / 10),
                  static_cast<unsigned>(tenths % 10), units[unit]);
}

std::string StrUtil::humanDuration(int64_t ms) {
    uint64_t span = ms < 0 ? uint64_t(0) - static_cast<uint64_t>(ms) : static_cast<uint64_t>(ms);
    std::string sign = ms < 0 ? "-" : "";
    if (span < 1000) return sign + format("%u ms", static_cast<unsigned>(span));
    if (span < 60000) {
        return sign + format("%u.%u s", static_cast<unsigned>(span / 1000),
                             static_cast<unsigned>(span % 1000 / 100));
    }
    uint64_t seconds = span / 1000;
    const uint64_t sizes[] = {86400, 3600, 60, 1};
    const char* const names[] = {"d", "h", "m", "s"};
    std::string out;
    for (size_t i = 0; i < 4; ++i) {
        uint64_t count = seconds / sizes[i];
        seconds %= sizes[i];
        if (count == 0 && out.empty()) continue;
        if (!out.empty()) out += ' ';
        out += format("%llu%s", static_cast<unsigned long long>(count), names[i]);
    }
    return sign + out;
}

}  // namespace orvane
