#pragma once

#include <orvane/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {

// String helpers used across the library and by programs. All static, no
// state: every operation may be called from any thread at the same time.
//
// Conversions from text report failure by a false result, leave the output
// untouched and log one line naming the operation ("[toInt,L<n>] ..."):
// text that is not a number, has anything before or after it (blanks
// included: trim first), or does not fit. They never throw. Characters are
// bytes: trimming and case changes touch ASCII only and leave UTF-8
// sequences as they are. Every operation returning a string allocates it.
class ORVANE_API StrUtil {
  public:
    // printf-style formatting into a string; any length.
    static std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    // The first substring that begins with `open` and ends with the next
    // `close` after it, both included; empty when there is none.
    static std::string findString(const std::string& s, const std::string& open,
                                  const std::string& close);
    // Each byte as two upper-case hexadecimal digits and one blank: "A5 01 ".
    static std::string hexView(const std::string& data);
    // The same for `len` bytes at `data`; "" for a null pointer or len below 1.
    static std::string hexView(const char* data, int len);
    // The split: the pieces of s between occurrences of sep, in order; with
    // dropEmpty the empty ones are left out (so a run of separators counts as
    // one). An empty sep gives s whole.
    static std::vector<std::string> splitString(const std::string& s, const std::string& sep,
                                                bool dropEmpty);
    // The pieces with sep between each two: the inverse of splitString
    // (without dropEmpty). No pieces give "".
    static std::string join(const std::vector<std::string>& pieces, const std::string& sep);
    // The first occurrence of the `patternLen`-byte pattern within the `len`
    // bytes at `data`, or null when it is absent, longer than the data, empty,
    // or an argument is null or negative.
    static const char* memString(const char* data, int len, const char* pattern, int patternLen);

    // s without the ASCII white space (blank, \t, \n, \v, \f, \r) at its
    // start (trimLeft), its end (trimRight) or both (trim).
    static std::string trim(const std::string& s);
    // s without leading white space.
    static std::string trimLeft(const std::string& s);
    // s without trailing white space.
    static std::string trimRight(const std::string& s);
    // s with ASCII letters changed to upper / lower case; other bytes kept.
    static std::string toUpper(const std::string& s);
    // s with ASCII letters in lower case.
    static std::string toLower(const std::string& s);
    // True when s begins with `prefix` (always for an empty prefix).
    static bool startsWith(const std::string& s, const std::string& prefix);
    // True when s ends with `suffix` (always for an empty suffix).
    static bool endsWith(const std::string& s, const std::string& suffix);
    // s with every occurrence of `from` replaced by `to`, scanning left to
    // right without rescanning replaced text. An empty `from` gives s as is.
    static std::string replaceAll(const std::string& s, const std::string& from,
                                  const std::string& to);

    // Text to integer. The whole text must be the number: an optional sign
    // ('-' refused for the unsigned forms) and digits of `base` (2..36; 16
    // also takes a "0x" prefix; 0 means 16 after a "0x" prefix and 10
    // otherwise, never octal). No blanks, no suffix. False (logged, *out
    // untouched) for anything else, a value out of the type's range, a bad
    // base or a null out.
    static bool toInt(const std::string& text, int* out, int base = 10);
    // toInt for unsigned int.
    static bool toUInt(const std::string& text, unsigned int* out, int base = 10);
    // toInt for int64_t.
    static bool toInt64(const std::string& text, int64_t* out, int base = 10);
    // toInt for uint64_t.
    static bool toUInt64(const std::string& text, uint64_t* out, int base = 10);
    // toInt, also refusing (logged) a value outside [minValue, maxValue]:
    // the form for settings with limits ("port", "baud rate").
    static bool toIntInRange(const std::string& text, int minValue, int maxValue, int* out,
                             int base = 10);
    // Text to double: decimal or exponent form ("1.5", "-2e-3", "+7"),
    // always with '.' as the decimal point whatever the locale. Refuses
    // (logged) anything else, inf and nan, and values beyond double's range (above
    // about 1.8e308 or below 2.2e-308 in magnitude, other than 0).
    static bool toDouble(const std::string& text, double* out);
    // double to text: the shortest text that reads back as the same value
    // ("0.1", "1e+100") when decimals < 0, else fixed with that many
    // decimals ("3.14"). '.' as decimal point whatever the locale.
    static std::string doubleToString(double value, int decimals = -1);

    // Bytes as two lower-case (or upper-case) hexadecimal digits each, no
    // separators: "a501ff".
    static std::string toHex(const std::string& bytes, bool upperCase = false);
    // Hexadecimal text (either case) to bytes; blanks, tabs and line ends
    // between byte pairs are skipped, so hexView's output reads back. False
    // (logged, *out untouched) on any other character, a lone digit, or a
    // null out.
    static bool fromHex(const std::string& text, std::string* out);

    // A byte count for people, in binary units: "512 B", "1.5 KiB",
    // "3.0 MiB", up to "EiB"; one decimal, rounded half up.
    static std::string humanSize(uint64_t bytes);
    // A span in milliseconds for people: "250 ms" below a second, "12.3 s"
    // below a minute (tenths cut off, not rounded), else every unit from the
    // largest non-zero one down to seconds: "5m 7s", "1h 0m 1s", "2d 3h 0m 9s".
    // Negative spans get a leading '-'.
    static std::string humanDuration(int64_t ms);
};

}  // namespace orvane
