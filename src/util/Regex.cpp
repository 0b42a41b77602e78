#include <orvane/Regex.h>
#include <regex.h>

#include "log/LogLine.h"

namespace orvane {

namespace {

// Offsets of the whole match, then of each group (-1 for a group not taking part).
using Spans = std::vector<regmatch_t>;

std::string partOf(const std::string& text, const regmatch_t& span) {
    if (span.rm_so < 0) return std::string();
    return text.substr(static_cast<size_t>(span.rm_so),
                       static_cast<size_t>(span.rm_eo - span.rm_so));
}

void groupsOf(const std::string& text, const Spans& spans, std::vector<std::string>* groups) {
    groups->clear();
    for (const regmatch_t& span : spans) groups->push_back(partOf(text, span));
}

}  // namespace

struct Regex::Compiled {
    regex_t re;
    bool ready = false;  // regcomp succeeded: regfree is due
    ~Compiled() {
        if (ready) regfree(&re);
    }

    // The first match at or after byte `from` into *spans; false when there is none.
    bool exec(const std::string& text, size_t from, Spans* spans) const {
        if (from > text.size()) return false;
        spans->resize(re.re_nsub + 1);
        (*spans)[0].rm_so = static_cast<regoff_t>(from);
        (*spans)[0].rm_eo = static_cast<regoff_t>(text.size());
        return regexec(&re, text.c_str(), spans->size(), spans->data(), REG_STARTEND) == 0;
    }

    // Hands each non-overlapping match, left to right, to `take` while it
    // returns true; an empty match moves the next search on by one byte.
    template <typename Take>
    void eachMatch(const std::string& text, Take take) const {
        Spans spans;
        for (size_t from = 0; exec(text, from, &spans) && take(spans);) {
            size_t end = static_cast<size_t>(spans[0].rm_eo);
            from = end > static_cast<size_t>(spans[0].rm_so) ? end : end + 1;
        }
    }
};

Regex::Regex(const std::string& pattern, unsigned flags) : className("Regex"), pattern_(pattern) {
    if (pattern.find('\0') != std::string::npos) {
        ORVANE_ERROR_IN("Regex", "bad pattern: a NUL byte at offset %zu", pattern.find('\0'));
        return;
    }
    std::unique_ptr<Compiled> compiled(new Compiled);
    int cflags = REG_EXTENDED;
    if (flags & IgnoreCase) cflags |= REG_ICASE;
    if (flags & Multiline) cflags |= REG_NEWLINE;
    int rc = regcomp(&compiled->re, pattern.c_str(), cflags);
    if (rc != 0) {
        char reason[128];
        regerror(rc, &compiled->re, reason, sizeof reason);
        ORVANE_ERROR_IN("Regex", "bad pattern \"%s\": %s", pattern.c_str(), reason);
        return;
    }
    compiled->ready = true;
    compiled_ = std::move(compiled);
}

Regex::~Regex() = default;
Regex::Regex(Regex&& other) noexcept = default;
Regex& Regex::operator=(Regex&& other) noexcept = default;

size_t Regex::groupCount() const { return compiled_ ? compiled_->re.re_nsub : 0; }

bool Regex::match(const std::string& text, std::vector<std::string>* groups) const {
    Spans spans;
    if (!compiled_ || !compiled_->exec(text, 0, &spans) || spans[0].rm_so != 0 ||
        static_cast<size_t>(spans[0].rm_eo) != text.size()) {
        return false;
    }
    if (groups != nullptr) groupsOf(text, spans, groups);
    return true;
}

bool Regex::search(const std::string& text, std::vector<std::string>* groups, size_t from,
                   size_t* position) const {
    Spans spans;
    if (!compiled_ || !compiled_->exec(text, from, &spans)) return false;
    if (groups != nullptr) groupsOf(text, spans, groups);
    if (position != nullptr) *position = static_cast<size_t>(spans[0].rm_so);
    return true;
}

std::vector<std::vector<std::string>> Regex::findAllGroups(const std::string& text) const {
    std::vector<std::vector<std::string>> all;
    if (!compiled_) return all;
    compiled_->eachMatch(text, [&](const Spans& spans) {
        all.emplace_back();
        groupsOf(text, spans, &all.back());
        return true;
    });
    return all;
}

std::vector<std::string> Regex::findAll(const std::string& text) const {
    std::vector<std::string> whole;
    if (!compiled_) return whole;
    compiled_->eachMatch(text, [&](const Spans& spans) {
        whole.push_back(partOf(text, spans[0]));
        return true;
    });
    return whole;
}

std::string Regex::replace(const std::string& text, const std::string& replacement,
                           bool all) const {
    if (!compiled_) return text;
    std::string out;
    size_t copied = 0;
    compiled_->eachMatch(text, [&](const Spans& spans) {
        size_t begin = static_cast<size_t>(spans[0].rm_so);
        size_t end = static_cast<size_t>(spans[0].rm_eo);
        out.append(text, copied, begin - copied);
        for (size_t i = 0; i < replacement.size(); ++i) {
            char c = replacement[i];
            char next = i + 1 < replacement.size() ? replacement[i + 1] : '\0';
            if (c == '\\' && next >= '0' && next <= '9') {
                size_t group = static_cast<size_t>(next - '0');
                if (group < spans.size() && spans[group].rm_so >= 0) {
                    out.append(text, static_cast<size_t>(spans[group].rm_so),
                               static_cast<size_t>(spans[group].rm_eo - spans[group].rm_so));
                }
                ++i;
            } else if (c == '\\' && next == '\\') {
                out += '\\';
                ++i;
            } else {
                out += c;
            }
        }
        copied = end;
        if (all && end == begin) {
            // An empty match: keep the byte after it; the next search starts past it.
            if (end < text.size()) out += text[end];
            copied = end + 1;
        }
        return all;
    });
    if (copied < text.size()) out.append(text, copied, std::string::npos);
    return out;
}

}  // namespace orvane
