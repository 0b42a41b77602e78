#pragma once

#include <orvane/Export.h>

#include <string>

namespace orvane {

// Directory helpers. All static, no state; safe from any thread.
class ORVANE_API Directory {
  public:
    // True when `path` names a directory (links are followed).
    static bool exists(const std::string& path);
    // Creates `path` with `mode` (subject to the umask); with `parents`,
    // missing parent directories too, and an existing directory is success.
    // Without `parents` an existing entry fails as mkdir does.
    static bool createDir(const std::string& path, unsigned int mode, bool parents);
};

}  // namespace orvane
