#pragma once

#include <orvane/Export.h>

#include <cstdint>
#include <string>

namespace orvane {

// A path as a value: joining, splitting and lexical normalisation, plus a few
// questions to the file system about the entry it names.
//
//     FilePath log = FilePath("/data") / "logs" / "app.log";
//     log.parent().toString();                        // "/data/logs"
//     log.stem() + "." + log.extension();        // "app" "." "log"
//     FilePath("/data/a/../b/").normalised();    // "/data/b"
//     FilePath("/data/b/c").relativeTo("/data/x").toString();  // "../b/c"
//     if (log.isFile() && log.size() > 1 << 20) { ... }
//
// The string operations (everything but the ones marked "disk") never touch
// the file system and cannot fail; they take '/' as the only separator and
// treat a name as bytes. The disk queries follow symbolic links except
// isLink(); a query that cannot answer is false (predicates, silent) or -1
// (size, modifyTime, logged once). absolute() reads the working directory of
// the process, which another thread may change.
//
// Behaviour worth knowing (POCO, Qt and std::filesystem each differ a little):
// - Trailing slashes are ignored by parent(), fileName(), stem() and
//   extension(): "a/b/" has the file name "b" and the parent "a", as
//   basename(1) and dirname(1) say.
// - Joining an absolute part replaces the path: "/data" / "/etc" is "/etc",
//   as std::filesystem and QDir do. Check isAbsolute() first when the part
//   comes from outside.
// - extension() is the text after the last dot, without the dot ("gz" of
//   "a.tar.gz"); a leading dot does not start one (".profile" has none).
// - normalised() is purely lexical: "a/link/.." becomes "a" even when link is
//   a symbolic link; realPath() asks the file system instead.
//
// A value type: copy it freely; const operations are safe from any number of
// threads at once. Costs: one std::string (and the className string, within
// the small-string buffer); the disk queries make one stat()/lstat() each.
class ORVANE_API FilePath {
  public:
    FilePath();
    FilePath(std::string path);  // NOLINT: implicit, a path is a string
    FilePath(const char* path);  // NOLINT: null is taken as ""

    // The path as a string.
    const std::string& toString() const { return path_; }
    // True for the empty path.
    bool empty() const { return path_.empty(); }
    // True when the path starts with '/'.
    bool isAbsolute() const { return !path_.empty() && path_[0] == '/'; }

    // This path with `part` appended after one '/'; an absolute `part`
    // replaces it and an empty one leaves it as it is.
    FilePath join(const FilePath& part) const;
    // join(): this path with `part` appended.
    FilePath operator/(const FilePath& part) const { return join(part); }
    // Appends `part` to this path (join()).
    FilePath& operator/=(const FilePath& part) { return *this = join(part); }

    // The path without its last component: "/a/b" -> "/a", "/a" -> "/",
    // "a" -> "" (no parent named), "/" -> "/".
    FilePath parent() const;
    // The last component: "/a/b.txt" -> "b.txt", "/" -> "", "" -> "".
    std::string fileName() const;
    // fileName() without ".extension()": "b.tar.gz" -> "b.tar".
    std::string stem() const;
    // Text after the last dot of fileName(), without the dot; "" when none.
    std::string extension() const;

    // Lexical normal form: repeated slashes become one, "." components go,
    // "x/.." pairs cancel, ".." directly under "/" goes, no trailing slash.
    // "" stays "" and a relative path that cancels out becomes ".".
    FilePath normalised() const;
    // This path relative to `base`, both normalised first: "/a/b/c" relative
    // to "/a/x" is "../b/c"; equal paths give ".". Empty (logged) when one is
    // absolute and the other not, or when `base` climbs out with "..".
    FilePath relativeTo(const FilePath& base) const;
    // Disk (working directory): the normalised absolute form; a relative path
    // is taken from the current working directory. Empty (logged) for an
    // empty path or when the working directory cannot be read.
    FilePath absolute() const;
    // Disk: the canonical absolute path with every link resolved
    // (realpath(3)); empty (logged) when an entry on the way is missing.
    FilePath realPath() const;

    // Disk queries, silent: false when the entry is missing or unreadable.
    bool exists() const;       // any kind of entry (a dangling link: false)
    bool isFile() const;       // a regular file
    bool isDirectory() const;  // a directory
    bool isLink() const;       // a symbolic link itself (lstat)
    // Disk: size in bytes of the entry (after links); -1 (logged) on error.
    int64_t size() const;
    // Disk: modification time in microseconds since the epoch, as
    // File::modifyTime gives it but following links; -1 (logged) on error.
    int64_t modifyTime() const;

    // Comparisons of the path strings, byte for byte (no normalising).
    bool operator==(const FilePath& other) const { return path_ == other.path_; }
    // Comparisons of the path strings, byte for byte (no normalising).
    bool operator!=(const FilePath& other) const { return path_ != other.path_; }
    // Comparisons of the path strings, byte for byte (no normalising), for ordered containers.
    bool operator<(const FilePath& other) const { return path_ < other.path_; }

  private:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    std::string path_;
};

}  // namespace orvane
