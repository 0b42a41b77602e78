// Decodes the input (first byte: option bits) as Base64 and checks that
// decoding is strict and exact: a text that decodes is the encoding of what
// it decodes to (line ends aside), and any bytes survive encode then decode.

#include <orvane/Base64.h>
#include <orvane/Tracer.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

std::string withoutLineEnds(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c != '\r' && c != '\n') out += c;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    unsigned options = data[0] & 0x0F;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    std::string bytes;
    if (orvane::Base64::decode(text, &bytes, options)) {
        unsigned bare = options & (orvane::Base64::UrlSafe | orvane::Base64::NoPadding);
        if (orvane::Base64::encode(bytes, bare) != withoutLineEnds(text)) abort();
    }
    std::string encoded = orvane::Base64::encode(text, options);
    if (encoded.size() != orvane::Base64::encodedLength(text.size(), options)) abort();
    std::string back;
    if (!orvane::Base64::decode(encoded, &back, options) || back != text) abort();
    // The Tracer is never started: deliver (to no sink) what this input logged.
    orvane::Tracer::getInstance().sinkMsg();
    return 0;
}
