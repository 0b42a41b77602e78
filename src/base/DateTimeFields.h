#pragma once

// Moving the date and time fields between DateTime and the C records that
// share struct tm's field names (tm, rtc_time). Private to the library.

#include <orvane/Time.h>

#include <ctime>

namespace orvane {
namespace detail {

// From a broken-down record with the fields of struct tm (tm, rtc_time).
template <typename Record>
DateTime fromTm(const Record& t) {
    DateTime dt(static_cast<unsigned>(t.tm_year + 1900), static_cast<unsigned>(t.tm_mon + 1),
                static_cast<unsigned>(t.tm_mday), static_cast<unsigned>(t.tm_hour),
                static_cast<unsigned>(t.tm_min), static_cast<unsigned>(t.tm_sec));
    return dt;
}

// The date and time fields into a zeroed record of the fields of struct tm.
template <typename Record>
Record toRecord(const DateTime& value) {
    Record t{};
    t.tm_year = value.year - 1900;
    t.tm_mon = value.month - 1;
    t.tm_mday = value.day;
    t.tm_hour = value.hour;
    t.tm_min = value.minute;
    t.tm_sec = value.second;
    return t;
}

// mktime of the fields as local time, the zone deciding daylight saving.
inline time_t localSeconds(const DateTime& value) {
    tm local = toRecord<tm>(value);
    local.tm_isdst = -1;
    return mktime(&local);
}

}  // namespace detail
}  // namespace orvane
