#pragma once

#include <string>

namespace orvane {
namespace detail {

// Creates `path` with `mode` (and its missing parents when `parents`) without
// logging, for callers that report the failure with a line of their own.
// Returns 0, or the errno of the mkdir that failed with its path in *failed.
int makeDirs(const std::string& path, unsigned int mode, bool parents, std::string* failed);

}  // namespace detail
}  // namespace orvane
