#pragma once

#include <orvane/Export.h>

#include <cstdint>
#include <string>

namespace orvane {

// A three-part version number "major.minor.patch" (firmware, protocol or
// configuration versions), compared part by part as numbers: 1.10.0 is
// newer than 1.9.7.
//
//     Version3 running(1, 4, 2), offered;
//     if (!offered.parse(text)) return false;      // logged
//     if (offered > running) install();
//
// Text is exactly three decimal numbers 0..4294967295 joined by '.', with
// no sign, blank, leading zero ("01") or suffix ("-rc1", "+build"): parse
// refuses anything else with one logged line and keeps the old value.
// Incrementing a part zeroes the parts after it (1.4.2 -> 1.5.0), as
// semantic versioning does; incrementing past 4294967295 is refused
// (logged). A value type: copy it freely; one object per thread, or
// guarded, as for any value.
class ORVANE_API Version3 {
  public:
    // 0.0.0.
    Version3();
    // The version major.minor.patch.
    Version3(uint32_t majorVersion, uint32_t minorVersion, uint32_t patchVersion);

    // Reads "major.minor.patch"; false (logged, value unchanged) on bad text.
    bool parse(const std::string& text);
    // A Version3 from text; 0.0.0 (logged) when the text is bad. Use parse()
    // to tell a bad text from "0.0.0".
    static Version3 fromString(const std::string& text);
    // "major.minor.patch", which parse() reads back.
    std::string toString() const;

    // The major part.
    uint32_t majorVersion() const { return major_; }
    // The minor part.
    uint32_t minorVersion() const { return minor_; }
    // The patch part.
    uint32_t patchVersion() const { return patch_; }

    // Adds one to the major part and zeroes the minor and patch parts; false
    // (logged, value unchanged) when the major part is already 4294967295.
    bool incrementMajor();
    // Adds one to the minor part and zeroes the patch part; false (logged,
    // value unchanged) when the minor part is already 4294967295.
    bool incrementMinor();
    // Adds one to the patch part; false (logged, value unchanged) when it is
    // already 4294967295.
    bool incrementPatch();

    // Negative, 0 or positive as this is older than, equal to or newer than other.
    int compare(const Version3& other) const;
    // Comparisons by compare(): part by part, major first.
    bool operator==(const Version3& other) const { return compare(other) == 0; }
    // Comparisons by compare(): part by part, major first.
    bool operator!=(const Version3& other) const { return compare(other) != 0; }
    // Comparisons by compare(): part by part, major first.
    bool operator<(const Version3& other) const { return compare(other) < 0; }
    // Comparisons by compare(): part by part, major first.
    bool operator<=(const Version3& other) const { return compare(other) <= 0; }
    // Comparisons by compare(): part by part, major first.
    bool operator>(const Version3& other) const { return compare(other) > 0; }
    // Comparisons by compare(): part by part, major first.
    bool operator>=(const Version3& other) const { return compare(other) >= 0; }

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    bool increment(uint32_t* part, const char* op);

    uint32_t major_;
    uint32_t minor_;
    uint32_t patch_;
};

}  // namespace orvane
