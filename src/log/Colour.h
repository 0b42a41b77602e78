#pragma once

#include <string>

namespace orvane {
namespace detail {

// The line as the console and network sinks show it, built in one
// allocation: the level's colour prefix, the line, the reset sequence and a
// newline. Level 1 has no colour (the line and the newline alone); levels
// above 4 are bold green.
inline std::string colouredLine(int level, const std::string& line) {
    static const char* const prefixes[] = {"\033[36m\033[1m", "", "\033[33m\033[1m",
                                           "\033[31m\033[1m", "\033[43;31m\033[1m"};
    const char* prefix = level > 4 ? "\033[32m\033[1m" : prefixes[level < 0 ? 1 : level];
    std::string text;
    text.reserve(line.size() + 24);
    text.append(prefix).append(line);
    if (*prefix != '\0') text.append("\033[0m");
    text += '\n';
    return text;
}

}  // namespace detail
}  // namespace orvane
