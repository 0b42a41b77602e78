#include <orvane/Version3.h>

#include "log/LogLine.h"

namespace orvane {

Version3::Version3() : Version3(0, 0, 0) {}

Version3::Version3(uint32_t majorVersion, uint32_t minorVersion, uint32_t patchVersion)
    : className("Version3"), major_(majorVersion), minor_(minorVersion), patch_(patchVersion) {}

bool Version3::parse(const std::string& text) {
    uint64_t parts[3] = {0, 0, 0};
    size_t at = 0;
    for (int i = 0; i < 3; ++i) {
        size_t digits = 0;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9' && digits <= 10) {
            if (digits == 1 && parts[i] == 0) break;  // a leading zero
            parts[i] = parts[i] * 10 + static_cast<uint64_t>(text[at] - '0');
            ++at;
            ++digits;
        }
        bool endOk = i < 2 ? at < text.size() && text[at] == '.' : at == text.size();
        if (digits == 0 || parts[i] > UINT32_MAX || !endOk) {
            ORVANE_ERROR("bad version \"%s\" (want major.minor.patch)", text.c_str());
            return false;
        }
        ++at;
    }
    major_ = static_cast<uint32_t>(parts[0]);
    minor_ = static_cast<uint32_t>(parts[1]);
    patch_ = static_cast<uint32_t>(parts[2]);
    return true;
}

Version3 Version3::fromString(const std::string& text) {
    Version3 version;
    version.parse(text);
    return version;
}

std::string Version3::toString() const {
    return std::to_string(major_) + "." + std::to_string(minor_) + "." + std::to_string(patch_);
}

bool Version3::increment(uint32_t* part, const char* op) {
    if (*part == UINT32_MAX) {
        ORVANE_ERROR_IN(op, "cannot increment %s past %u", toString().c_str(), UINT32_MAX);
        return false;
    }
    ++*part;
    if (part == &major_) minor_ = 0;
    if (part != &patch_) patch_ = 0;
    return true;
}

bool Version3::incrementMajor() { return increment(&major_, "incrementMajor"); }
bool Version3::incrementMinor() { return increment(&minor_, "incrementMinor"); }
bool Version3::incrementPatch() { return increment(&patch_, "incrementPatch"); }

int Version3::compare(const Version3& other) const {
    if (major_ != other.major_) return major_ < other.major_ ? -1 : 1;
    if (minor_ != other.minor_) return minor_ < other.minor_ ? -1 : 1;
    if (patch_ != other.patch_) return patch_ < other.patch_ ? -1 : 1;
    return 0;
}

}  // namespace orvane
