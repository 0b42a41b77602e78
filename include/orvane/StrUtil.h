#pragma once

#include <orvane/Export.h>

#include <string>
#include <vector>

namespace orvane {

// String helpers used across the library. All static, no state.
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
    static std::string hexView(const char* data, int len);
    // The pieces of s between occurrences of sep, in order; with dropEmpty
    // the empty ones are left out (so a run of separators counts as one).
    // An empty sep gives s whole.
    static std::vector<std::string> splitString(const std::string& s, const std::string& sep,
                                                bool dropEmpty);
    // The first occurrence of the `patternLen`-byte pattern within the `len`
    // bytes at `data`, or null when it is absent, longer than the data, empty,
    // or an argument is null or negative.
    static const char* memString(const char* data, int len, const char* pattern, int patternLen);
};

}  // namespace orvane
