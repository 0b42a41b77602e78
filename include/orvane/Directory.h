#pragma once

#include <orvane/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace orvane {

// Directory trees: create, list, copy, move, measure and remove them, and
// make unique temporary directories.
//
//     std::vector<std::string> logs;
//     if (Directory::list("/data/log", &logs, true, "*.log")) { ... }  // "a.log", "old/b.log"
//     std::string work = Directory::createTemp("/data", "update-");
//     Directory::copy("/data/config", work + "/config");
//     Directory::remove(work);
//
// All static, no state; safe from any thread, though two threads changing
// the same tree see each other's changes. Every operation walks the tree
// with descriptors (openat with O_NOFOLLOW, one open directory per level), so
// a symbolic link inside a tree is never followed: list, copy and totalSize
// see the link itself, remove deletes the link and not what it points to,
// and a directory swapped for a link while the walk runs is refused, not
// entered. The path given by the caller is followed when it is a link to a
// directory (list, copy, totalSize), never by remove and rename.
// Costs: one getdents pass and one fstatat per entry; list sorts each
// directory's names. Failures are logged once (with the entry that failed)
// and reported by result: false, -1 or an empty string.
class ORVANE_API Directory {
  public:
    // True when `path` names a directory (links are followed).
    static bool exists(const std::string& path);
    // Creates `path` with `mode` (subject to the umask); with `parents`,
    // missing parent directories too, and an existing directory is success.
    // Without `parents` an existing entry fails as mkdir does.
    static bool createDir(const std::string& path, unsigned int mode, bool parents);

    // The entries of `path` ("." and ".." left out, hidden names included) as
    // paths relative to it, each directory's names sorted and a directory
    // listed before its contents. With `recursive`, subdirectories are
    // entered (not links to them). A non-empty `pattern` keeps the entries
    // whose own name matches it as fnmatch(3) glob ("*.log", "data-??.bin";
    // '*' also matches a leading dot); directories are entered either way.
    // False when `path` or a subdirectory cannot be read; `entries` then
    // holds what was listed before the failure.
    static bool list(const std::string& path, std::vector<std::string>* entries,
                     bool recursive = false, const std::string& pattern = "");

    // Removes `path` and, for a directory, everything below it, like rm -rf.
    // A missing `path` is success (nothing to remove); a symbolic link is
    // removed itself. A directory of another file system (a mount point
    // inside the tree) is neither entered nor removed: the call fails there.
    // Stops at the first entry it cannot remove, leaving the rest.
    static bool remove(const std::string& path);

    // Moves `from` (a directory or any other entry) to `to`, which must not
    // exist. One rename(2) on the same file system, atomic and without
    // replacing a `to` that appears meanwhile; across file systems a copy
    // followed by remove of `from` (not atomic; a failed copy is removed).
    // Devices and sockets, which the copy skips with a warning, are gone
    // after a move across file systems.
    static bool rename(const std::string& from, const std::string& to);

    // Copies the tree `from` to `to`, which must not exist: directories,
    // regular files with their permission bits and modification times,
    // symbolic links as links, named pipes as new pipes. Devices and sockets
    // are skipped with a warning; owners are not copied (the caller's). A
    // `to` inside `from` is refused ("Invalid argument"). On failure the
    // partial copy is removed.
    static bool copy(const std::string& from, const std::string& to);

    // Creates a new directory, mode 0700, named `prefix` and six random
    // characters, inside `parent` ("/tmp" when empty) with mkdtemp(3); its
    // path, or "" on failure. The caller removes it (Directory::remove).
    static std::string createTemp(const std::string& parent, const std::string& prefix);

    // Bytes held by the regular files in the tree `path` (their sizes, each
    // hard-linked file counted once; directories and links count nothing;
    // a regular file `path` gives its own size). -1 on error.
    static int64_t totalSize(const std::string& path);
};

}  // namespace orvane
