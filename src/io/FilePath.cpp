#include <errno.h>
#include <limits.h>
#include <orvane/FilePath.h>
#include <orvane/Time.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <utility>
#include <vector>

#include "log/LogLine.h"

namespace orvane {

namespace {

// The components of `path` between slashes, empty ones dropped.
std::vector<std::string> split(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t slash = path.find('/', start);
        if (slash == std::string::npos) slash = path.size();
        if (slash > start) parts.push_back(path.substr(start, slash - start));
        start = slash + 1;
    }
    return parts;
}

// `path` without trailing slashes; "/" (or "///") stays "/".
std::string trimmed(const std::string& path) {
    size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) return path.empty() ? "" : "/";
    return path.substr(0, end + 1);
}

// Lexical normal form of the components, for an absolute path or not.
std::vector<std::string> normalParts(const std::string& path) {
    bool absolute = !path.empty() && path[0] == '/';
    std::vector<std::string> out;
    for (std::string& part : split(path)) {
        if (part == ".") continue;
        if (part == "..") {
            if (!out.empty() && out.back() != "..") {
                out.pop_back();
                continue;
            }
            if (absolute) continue;  // "/.." is "/"
        }
        out.push_back(std::move(part));
    }
    return out;
}

// stat() of `path` for the disk queries that log: false, logged for `method`
// of `className`, when `path` is empty or stat() fails.
bool statLogged(const std::string& className, const char* method, const std::string& path,
                struct stat* st) {
    if (!path.empty() && ::stat(path.c_str(), st) == 0) return true;
    int err = path.empty() ? ENOENT : errno;
    ORVANE_ERROR_IN(method, "stat(%s) error: %s!", path.c_str(), strerror(err));
    return false;
}

// The st_mode of `path` (lstat() when not `follow`), 0 when it cannot be had.
mode_t modeOf(const std::string& path, bool follow) {
    struct stat st;
    if (path.empty() || (follow ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st)) != 0) {
        return 0;
    }
    return st.st_mode;
}

std::string joined(const std::vector<std::string>& parts, size_t from, bool absolute) {
    std::string out = absolute ? "/" : "";
    for (size_t i = from; i < parts.size(); ++i) {
        if (i > from) out += '/';
        out += parts[i];
    }
    return out;
}

}  // namespace

FilePath::FilePath() : className("FilePath") {}

FilePath::FilePath(std::string path) : className("FilePath"), path_(std::move(path)) {}

FilePath::FilePath(const char* path) : className("FilePath"), path_(path ? path : "") {}

FilePath FilePath::join(const FilePath& part) const {
    if (part.empty()) return *this;
    if (part.isAbsolute() || path_.empty()) return part;
    if (path_.back() == '/') return FilePath(path_ + part.path_);
    return FilePath(path_ + "/" + part.path_);
}

FilePath FilePath::parent() const {
    std::string path = trimmed(path_);
    if (path == "/") return FilePath("/");
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return FilePath();
    return FilePath(trimmed(path.substr(0, slash + 1)));
}

std::string FilePath::fileName() const {
    std::string path = trimmed(path_);
    if (path == "/") return "";
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string FilePath::stem() const {
    std::string name = fileName();
    std::string ext = extension();
    return ext.empty() ? name : name.substr(0, name.size() - ext.size() - 1);
}

std::string FilePath::extension() const {
    std::string name = fileName();
    size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size() || name == "..") return "";
    return name.substr(dot + 1);
}

FilePath FilePath::normalised() const {
    if (path_.empty()) return FilePath();
    std::vector<std::string> parts = normalParts(path_);
    if (parts.empty() && !isAbsolute()) return FilePath(".");
    return FilePath(joined(parts, 0, isAbsolute()));
}

FilePath FilePath::relativeTo(const FilePath& base) const {
    if (isAbsolute() != base.isAbsolute() || path_.empty() || base.empty()) {
        ORVANE_ERROR("cannot relate path(%s) to base(%s): both must be absolute or both relative!",
                     path_.c_str(), base.path_.c_str());
        return FilePath();
    }
    std::vector<std::string> to = normalParts(path_);
    std::vector<std::string> from = normalParts(base.path_);
    size_t common = 0;
    while (common < to.size() && common < from.size() && to[common] == from[common]) ++common;
    std::vector<std::string> parts;
    for (size_t i = common; i < from.size(); ++i) {
        if (from[i] == "..") {
            ORVANE_ERROR("base(%s) climbs out of the common part of path(%s)!", base.path_.c_str(),
                         path_.c_str());
            return FilePath();
        }
        parts.push_back("..");
    }
    parts.insert(parts.end(), to.begin() + static_cast<long>(common), to.end());
    return FilePath(parts.empty() ? "." : joined(parts, 0, false));
}

FilePath FilePath::absolute() const {
    if (path_.empty()) {
        ORVANE_ERROR("path is empty!");
        return FilePath();
    }
    if (isAbsolute()) return normalised();
    std::unique_ptr<char, decltype(&free)> cwd(getcwd(nullptr, 0), &free);
    if (!cwd) {
        int err = errno;
        ORVANE_ERROR("getcwd error: %s!", strerror(err));
        return FilePath();
    }
    return FilePath(std::string(cwd.get()) + "/" + path_).normalised();
}

FilePath FilePath::realPath() const {
    if (path_.empty()) {
        ORVANE_ERROR("path is empty!");
        return FilePath();
    }
    std::unique_ptr<char, decltype(&free)> real(::realpath(path_.c_str(), nullptr), &free);
    if (!real) {
        int err = errno;
        ORVANE_ERROR("realpath(%s) error: %s!", path_.c_str(), strerror(err));
        return FilePath();
    }
    return FilePath(std::string(real.get()));
}

bool FilePath::exists() const { return modeOf(path_, true) != 0; }

bool FilePath::isFile() const { return S_ISREG(modeOf(path_, true)); }

bool FilePath::isDirectory() const { return S_ISDIR(modeOf(path_, true)); }

bool FilePath::isLink() const { return S_ISLNK(modeOf(path_, false)); }

int64_t FilePath::size() const {
    struct stat st;
    return statLogged(className, __func__, path_, &st) ? static_cast<int64_t>(st.st_size) : -1;
}

int64_t FilePath::modifyTime() const {
    struct stat st;
    return statLogged(className, __func__, path_, &st) ? Time(st.st_mtim).toMicroSec() : -1;
}

}  // namespace orvane
