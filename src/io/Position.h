#pragma once

// File positions and sizes are 64-bit everywhere, but the position
// operations of IODevice return long, which ends at 2 GiB on 32-bit targets.
// Private to the library.

#include <cstdint>

namespace orvane {
namespace detail {

// Whether a long holds `value` (always on 64-bit targets; -1 passes too).
inline bool fitsLong(int64_t value) {
    return static_cast<int64_t>(static_cast<long>(value)) == value;
}

}  // namespace detail
}  // namespace orvane
