#pragma once

#include <string>

// Whole reads and writes of the small text files of /proc and /sys, whose
// stat() size says nothing about their content. Both log nothing: each
// caller words its own line from the errno-style result.

namespace orvane {
namespace detail {

// Reads the whole of `path` (at most 1 MiB) into *text; 0 or an errno value.
int readSmallFile(const std::string& path, std::string* text);
// Writes `text` to the existing file `path` in one write from offset 0
// (truncating a regular file); 0 or an errno value.
int writeSmallFile(const std::string& path, const std::string& text);

}  // namespace detail
}  // namespace orvane
