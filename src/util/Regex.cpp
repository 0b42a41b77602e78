#include <orvane/Regex.h>
#include <regex.h>

#include "log/LogLine.h"

namespace orvane {

struct Regex::Compiled {
    regex_t re;
    bool ready = false;  // regcomp succeeded: regfree is due
    ~Compiled() {
        if (ready) regfree(&re);
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

bool Regex::exec(const std::string& text, size_t from, std::vector<long>* spans) const {
    if (!compiled_ || from > text.size()) return false;
    std::vector<regmatch_t> found(compiled_->re.re_nsub + 1);
    found[0].rm_so = static_cast<regoff_t>(from);
    found[0].rm_eo = static_cast<regoff_t>(text.size());
    if (regexec(&compiled_->re, text.c_str(), found.size(), found.data(), REG_STARTEND) != 0) {
        return false;
    }
    spans->clear();
    for (const regmatch_t& m : found) {
        spans->push_back(m.rm_so);
        spans->push_back(m.rm_eo);
    }
    return true;
}

namespace {

void groupsOf(const std::string& text, const std::vector<long>& spans,
              std::vector<std::string>* groups) {
    groups->clear();
    for (size_t i = 0; i + 1 < spans.size(); i += 2) {
        if (spans[i] < 0) {
            groups->emplace_back();
        } else {
            groups->emplace_back(text, static_cast<size_t>(spans[i]),
                                 static_cast<size_t>(spans[i + 1] - spans[i]));
        }
    }
}

}  // namespace

bool Regex::match(const std::string& text, std::vector<std::string>* groups) const {
    std::vector<long> spans;
    if (!exec(text, 0, &spans) || spans[0] != 0 || spans[1] != static_cast<long>(text.size())) {
        return false;
    }
    if (groups != nullptr) groupsOf(text, spans, groups);
    return true;
}

bool Regex::search(const std::string& text, std::vector<std::string>* groups, size_t from,
                   size_t* position) const {
    std::vector<long> spans;
    if (!exec(text, from, &spans)) return false;
    if (groups != nullptr) groupsOf(text, spans, groups);
    if (position != nullptr) *position = static_cast<size_t>(spans[0]);
    return true;
}

std::vector<std::vector<std::string>> Regex::findAllGroups(const std::string& text) const {
    std::vector<std::vector<std::string>> all;
    std::vector<long> spans;
    for (size_t from = 0; from <= text.size() && exec(text, from, &spans);) {
        all.emplace_back();
        groupsOf(text, spans, &all.back());
        size_t end = static_cast<size_t>(spans[1]);
        from = end > static_cast<size_t>(spans[0]) ? end : end + 1;
    }
    return all;
}

std::vector<std::string> Regex::findAll(const std::string& text) const {
    std::vector<std::string> whole;
    for (auto& groups : findAllGroups(text)) whole.push_back(std::move(groups[0]));
    return whole;
}

std::string Regex::replace(const std::string& text, const std::string& replacement,
                           bool all) const {
    std::string out;
    std::vector<long> spans;
    size_t copied = 0;
    for (size_t from = 0; from <= text.size() && exec(text, from, &spans);) {
        size_t begin = static_cast<size_t>(spans[0]);
        size_t end = static_cast<size_t>(spans[1]);
        out.append(text, copied, begin - copied);
        for (size_t i = 0; i < replacement.size(); ++i) {
            char c = replacement[i];
            char next = i + 1 < replacement.size() ? replacement[i + 1] : '\0';
            if (c == '\\' && next >= '0' && next <= '9') {
                size_t group = static_cast<size_t>(next - '0');
                if (2 * group < spans.size() && spans[2 * group] >= 0) {
                    out.append(text, static_cast<size_t>(spans[2 * group]),
                               static_cast<size_t>(spans[2 * group + 1] - spans[2 * group]));
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
        if (!all) break;
        if (end == begin) {
            // An empty match: keep the byte after it and look again past it.
            if (end < text.size()) out += text[end];
            copied = end + 1;
        }
        from = end == begin ? end + 1 : end;
    }
    if (copied < text.size()) out.append(text, copied, std::string::npos);
    return out;
}

}  // namespace orvane
