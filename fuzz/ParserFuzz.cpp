// Walks the input (first byte: separator) with the Parser and checks that
// every section lies within the text, holds no separator, and that the walk
// ends; parseNextInt may throw only std::stoi's two exceptions.

#include <orvane/DataBuffer.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const char sep[2] = {static_cast<char>(data[0]), '\0'};
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    const char* begin = text.c_str();
    size_t textLen = strlen(begin);
    unsigned int pos = 0;
    unsigned int len = 0;
    for (size_t steps = 0;; ++steps) {
        unsigned int before = pos;
        const char* section = orvane::Parser::parseNextSection(begin, &pos, sep, &len);
        if (section == nullptr) {
            if (pos != before) abort();
            break;
        }
        if (section != begin + before || len == 0 || before + len > textLen) abort();
        for (unsigned int i = 0; i < len; ++i) {
            if (section[i] == sep[0] && sep[0] != '\0') abort();
        }
        if (pos > textLen || steps > textLen) abort();
    }
    pos = 0;
    int value = 0;
    for (size_t steps = 0; steps <= textLen; ++steps) {
        try {
            if (!orvane::Parser::parseNextInt(begin, &pos, sep, &value)) break;
        } catch (const std::invalid_argument&) {
        } catch (const std::out_of_range&) {
        }
    }
    return 0;
}
