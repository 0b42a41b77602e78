#pragma once

#include <orvane/Time.h>

#include <cstdint>

namespace orvane {
namespace detail {

// Where the next period of a periodic activity starts, once the period that
// began at `start` is over at `now`: one period on, which keeps the phase,
// unless a whole period or more was missed; then afresh at `now`.
inline Time nextPeriodStart(const Time& start, const Time& now, int64_t periodUs) {
    return (now - start).toMicroSec() < 2 * periodUs ? start + Time::fromMicroSec(periodUs) : now;
}

}  // namespace detail
}  // namespace orvane
