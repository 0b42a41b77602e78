#include <orvane/StrUtil.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace orvane {

std::string StrUtil::format(const char* fmt, ...) {
    if (fmt == nullptr) return std::string();
    char small[256];
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    int n = vsnprintf(small, sizeof small, fmt, args);
    va_end(args);
    std::string out;
    if (n > 0 && static_cast<size_t>(n) < sizeof small) {
        out.assign(small, static_cast<size_t>(n));
    } else if (n > 0) {
        out.resize(static_cast<size_t>(n));
        vsnprintf(&out[0], out.size() + 1, fmt, again);
    }
    va_end(again);
    return out;
}

std::string StrUtil::findString(const std::string& s, const std::string& open,
                                const std::string& close) {
    size_t begin = s.find(open);
    if (begin == std::string::npos) return std::string();
    size_t end = s.find(close, begin + open.size());
    if (end == std::string::npos) return std::string();
    return s.substr(begin, end + close.size() - begin);
}

std::string StrUtil::hexView(const std::string& data) {
    return hexView(data.data(), static_cast<int>(data.size()));
}

std::string StrUtil::hexView(const char* data, int len) {
    static const char digits[] = "0123456789ABCDEF";
    if (data == nullptr || len <= 0) return std::string();
    std::string out(static_cast<size_t>(len) * 3, ' ');
    for (int i = 0; i < len; ++i) {
        unsigned char byte = static_cast<unsigned char>(data[i]);
        out[static_cast<size_t>(i) * 3] = digits[byte >> 4];
        out[static_cast<size_t>(i) * 3 + 1] = digits[byte & 0x0F];
    }
    return out;
}

std::vector<std::string> StrUtil::splitString(const std::string& s, const std::string& sep,
                                              bool dropEmpty) {
    std::vector<std::string> pieces;
    auto keep = [&](size_t from, size_t to) {
        if (to > from || !dropEmpty) pieces.emplace_back(s, from, to - from);
    };
    if (sep.empty()) {
        keep(0, s.size());
        return pieces;
    }
    size_t begin = 0;
    for (size_t at = s.find(sep); at != std::string::npos; at = s.find(sep, begin)) {
        keep(begin, at);
        begin = at + sep.size();
    }
    keep(begin, s.size());
    return pieces;
}

const char* StrUtil::memString(const char* data, int len, const char* pattern, int patternLen) {
    if (data == nullptr || pattern == nullptr || len <= 0 || patternLen <= 0) return nullptr;
    // The first match; once a candidate would run past the end no later one
    // fits either, so this is the C library's memmem.
    return static_cast<const char*>(
        memmem(data, static_cast<size_t>(len), pattern, static_cast<size_t>(patternLen)));
}

}  // namespace orvane
