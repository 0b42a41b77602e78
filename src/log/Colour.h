#pragma once

#include <string>

namespace orvane {
namespace detail {

// The line wrapped in its level's colour, as the console and network sinks
// show it: prefix + line + reset. Level 1 is the line alone; levels above 4
// are bold green.
inline std::string colourLine(int level, const std::string& line) {
    static const char* const prefixes[] = {"\033[36m\033[1m", "", "\033[33m\033[1m",
                                           "\033[31m\033[1m", "\033[43;31m\033[1m"};
    const char* prefix = level > 4 ? "\033[32m\033[1m" : prefixes[level < 0 ? 1 : level];
    if (*prefix == '\0') return line;
    std::string text;
    text.reserve(line.size() + 24);
    text.append(prefix).append(line).append("\033[0m");
    return text;
}

}  // namespace detail
}  // namespace orvane
