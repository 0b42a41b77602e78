#pragma once

#include <orvane/Export.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace orvane {

// A POSIX extended regular expression (regcomp with REG_EXTENDED, the
// dialect of grep -E): compiled once by the constructor, then matched any
// number of times.
//
//     Regex pair("^([a-z]+)=([0-9]+)$");
//     std::vector<std::string> groups;
//     if (pair.match("baud=115200", &groups)) ...     // groups: whole, "baud", "115200"
//     std::string masked = Regex("[0-9]").replace(text, "#");
//
// A pattern that does not compile leaves one logged line with the
// compiler's reason and a refusing object: isValid() is false and every
// match gives false or an empty result, without further lines. Matching
// follows POSIX: the leftmost match, and of those the longest. Text is
// bytes (embedded NULs allowed); with IgnoreCase only ASCII letters fold.
// No lookahead, lazy quantifiers or \d (use [0-9]); \1 back-references
// inside the pattern work with glibc.
//
// Move-only (the compiled form belongs to one object); regfree runs in the
// destructor. The matching operations are const and may run in several
// threads at once on one object (glibc guards the compiled form). Each call
// costs time linear in the text for most patterns, and allocates one array
// of match offsets and the strings it returns.
class ORVANE_API Regex {
  public:
    // Flag bits for the constructor.
    enum Flags : unsigned {
        // Letters match either case.
        IgnoreCase = 1,
        // '.' and bracket lists do not match a line end; '^' and '$' also
        // match just after and before one (line by line).
        Multiline = 2,
    };

    // Compiles `pattern` with the flags; a pattern that does not compile is logged and gives an
    // invalid object (isValid() false, nothing matches).
    explicit Regex(const std::string& pattern, unsigned flags = 0);
    ~Regex();
    // Takes the compiled pattern over; `other` becomes invalid.
    Regex(Regex&& other) noexcept;
    // Takes the compiled pattern over; `other` becomes invalid.
    Regex& operator=(Regex&& other) noexcept;
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    // True when the pattern compiled.
    bool isValid() const { return compiled_ != nullptr; }
    // The pattern as given.
    const std::string& pattern() const { return pattern_; }
    // Number of parenthesised groups in the pattern; 0 when invalid.
    size_t groupCount() const;

    // True when the whole text matches. With `groups`, it receives the
    // whole match and then each group (empty for a group that took no part).
    bool match(const std::string& text, std::vector<std::string>* groups = nullptr) const;
    // True when a part of the text, starting at or after byte `from`,
    // matches; `groups` as for match(), and `position` the match's offset.
    // '^' matches only at the very start of text, not at `from`.
    bool search(const std::string& text, std::vector<std::string>* groups = nullptr,
                size_t from = 0, size_t* position = nullptr) const;
    // Every non-overlapping match, left to right (an empty match advances by
    // one byte).
    std::vector<std::string> findAll(const std::string& text) const;
    // findAll with groups: for each match, the whole match and each group.
    std::vector<std::vector<std::string>> findAllGroups(const std::string& text) const;
    // text with each match (or only the first) replaced by `replacement`,
    // in which \0 .. \9 stand for the whole match and the groups and \\ for
    // a backslash (a group the pattern lacks gives nothing). An invalid
    // object gives the text unchanged.
    std::string replace(const std::string& text, const std::string& replacement,
                        bool all = true) const;

    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // The compiled form and its match loop.
    struct Compiled;

    std::string pattern_;
    std::unique_ptr<Compiled> compiled_;
};

}  // namespace orvane
