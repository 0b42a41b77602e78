// The DateTime operations that read or change the machine's clocks and zone:
// the system clock, the hardware clock (RTC) and the time zone. They sit
// above the files and processes they use, apart from the date arithmetic.
#include <fcntl.h>
#include <linux/rtc.h>
#include <orvane/File.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>
#include <orvane/Time.h>
#include <orvane/UniqueFd.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/DateTimeFields.h"
#include "base/DateTimeText.h"
#include "log/LogLine.h"

namespace orvane {

using detail::fromTm;
using detail::localSeconds;
using detail::toRecord;

namespace {

// Characters of a zone database name ("Asia/Shanghai", "Etc/GMT+8"); anything
// else could change the meaning of the shell command it is written into.
bool isZoneName(const std::string& zone) {
    if (zone.empty()) return false;
    for (char c : zone) {
        if (!isalnum(static_cast<unsigned char>(c)) && strchr("/_+-.", c) == nullptr) {
            return false;
        }
    }
    return true;
}

bool runTimeCommand(const std::string& command) {
    if (System::execute(command)) return true;
    ORVANE_SERROR_IN("setDateTime", "@DataTime, exec cmd[%s] error!", command.c_str());
    return false;
}

// The hardware clock's device, open read-write while the object lives.
class RtcDevice {
  public:
    RtcDevice() : fd(::open("/dev/rtc0", O_RDWR | O_CLOEXEC)), openError(fd ? 0 : errno) {}

    const UniqueFd fd;
    const int openError;
};

}  // namespace

std::string DateTime::timeZone() {
    static const char* const kZoneFile = "/etc/timezone";
    if (File::exists(kZoneFile)) {
        return StrUtil::trimRight(File::readAll(kZoneFile));
    }
    tzset();
    return tzname[0] != nullptr ? std::string(tzname[0]) : std::string();
}

bool DateTime::setTimeZone(const int& offsetSeconds) {
    // putenv keeps the pointer, so the entry must outlive the call; one
    // buffer serves every call (the setters belong to one thread at a time).
    static char entry[32];
    snprintf(entry, sizeof entry, "TZ=UTC%d", offsetSeconds / 3600);
    if (putenv(entry) != 0) {
        int err = errno;
        ORVANE_SERROR("@DateTime, set environment error: %s!", strerror(err));
        return false;
    }
    tzset();
    return true;
}

bool DateTime::setDateTime(const DateTime& value) {
    errno = 0;
    time_t seconds = localSeconds(value);
    if (seconds < 0) {
        int err = errno;
        ORVANE_SERROR("@DateTime, make time error: %s !", strerror(err));
        return false;
    }
    timeval tv{};
    tv.tv_sec = seconds;
    if (settimeofday(&tv, nullptr) != 0) {
        int err = errno;
        ORVANE_SERROR("@DateTime, set time error: %s !", strerror(err));
        return false;
    }
    return true;
}

bool DateTime::setDateTime(const Time& t, const int& offsetSeconds, bool dst) {
    timeval tv = t.toTimeval();
    struct timezone zone {};
    zone.tz_minuteswest = offsetSeconds / 60;
    zone.tz_dsttime = dst ? 1 : 0;
    // The C library refuses a clock and a zone in one call (EINVAL), so the
    // zone goes first: the kernel may shift the clock on its first zone
    // setting, and the clock set afterwards stays as given.
    if (settimeofday(nullptr, &zone) != 0 || settimeofday(&tv, nullptr) != 0) {
        int err = errno;
        ORVANE_SERROR("@DateTime, set time error: %s !", strerror(err));
        return false;
    }
    std::string name = offsetSeconds == 0 ? std::string("UTC")
                                          : StrUtil::format("UTC%+d:00", offsetSeconds / 3600);
    setenv("TZ", name.c_str(), 1);
    tzset();
    return true;
}

bool DateTime::setDateTime(const Time& t, const std::string& zone) {
    std::string current = timeZone();
    const std::string& target = zone.empty() ? current : zone;
    std::string command =
        target == current
            ? StrUtil::format("timedatectl set-ntp false; export TZ=%s", target.c_str())
            : StrUtil::format(
                  "timedatectl set-ntp false; export TZ=%s; timedatectl set-timezone %s ; echo "
                  "%s > /etc/timezone",
                  target.c_str(), target.c_str(), target.c_str());
    if (!isZoneName(target)) {
        // Refused unrun: the name would be read by the shell.
        ORVANE_SERROR("@DataTime, exec cmd[%s] error!", command.c_str());
        return false;
    }
    if (!runTimeCommand(command)) return false;
    // The daemon takes wall-clock time of the new zone; this process follows it too.
    setenv("TZ", target.c_str(), 1);
    tzset();
    DateTime local(t);
    return runTimeCommand(StrUtil::format("timedatectl set-time '" ORVANE_DATE_TIME_FORMAT "'",
                                          local.year, local.month, local.day, local.hour,
                                          local.minute, local.second));
}

DateTime DateTime::getRtcTime() {
    RtcDevice rtc;
    if (!rtc.fd) {
        ORVANE_SERROR("@DateTime, open rtc error:%s.", strerror(rtc.openError));
        return DateTime();
    }
    rtc_time clock{};
    if (ioctl(rtc.fd.get(), RTC_RD_TIME, &clock) != 0) {
        int err = errno;
        ORVANE_SERROR("@DateTime, read rtc error:%s.", strerror(err));
        return DateTime();
    }
    return fromTm(clock);
}

bool DateTime::setRtcTime(const DateTime& value) {
    RtcDevice rtc;
    if (!rtc.fd) {
        ORVANE_SERROR("@DateTime, open rtc error:%s.", strerror(rtc.openError));
        return false;
    }
    rtc_time clock = toRecord<rtc_time>(value);
    if (ioctl(rtc.fd.get(), RTC_SET_TIME, &clock) != 0) {
        int err = errno;
        ORVANE_SERROR("@DateTime, write rtc error:%s.", strerror(err));
        return false;
    }
    return true;
}

}  // namespace orvane
