// Parses the input as a version and checks that a text that parses prints
// back as itself, that a refused one leaves the value alone, and that the
// order agrees with the parts.

#include <orvane/Tracer.h>
#include <orvane/Version3.h>

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    orvane::Version3 version(1, 2, 3);
    if (!version.parse(text)) {
        if (version != orvane::Version3(1, 2, 3)) abort();
        orvane::Tracer::getInstance().sinkMsg();
        return 0;
    }
    if (version.toString() != text) abort();
    orvane::Version3 next = version;
    if (next.incrementPatch() && !(next > version)) abort();
    if (orvane::Version3::fromString(version.toString()) != version) abort();
    // The Tracer is never started: deliver (to no sink) what this input logged.
    orvane::Tracer::getInstance().sinkMsg();
    return 0;
}
