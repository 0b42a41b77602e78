// Feeds the input to AnyPacket::parse in pieces and checks the frames and
// log lines against the plain model of the cutting rules, then decodes every
// frame, the input itself as one frame, and round-trips decoded payloads.

#include <fuzzer/FuzzedDataProvider.h>
#include <orvane/AnyPacket.h>
#include <orvane/Tracer.h>
#include <orvane/TracerSink.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "codec/CodecModels.h"

namespace {

// Keeps each delivered line as its level letter and text, as the model writes them.
class EventSink : public orvane::TracerSink {
  public:
    void sink(int, const std::string& line) override {
        size_t text = line.find("] ");
        events.push_back(line.substr(1, 1) + " " + line.substr(text + 2));
    }
    std::vector<std::string> events;
};

std::shared_ptr<EventSink> eventSink;

// The lines logged since the last call (the Tracer is never started, so
// nothing else delivers them).
std::vector<std::string> takeEvents() {
    orvane::Tracer::getInstance().sinkMsg();
    std::vector<std::string> out;
    out.swap(eventSink->events);
    return out;
}

void fail(const char* what) {
    fprintf(stderr, "mismatch: %s\n", what);
    abort();
}

// Lines over 4095 bytes reach the sinks cut and ending in "...".
bool sameEvent(const std::string& logged, const std::string& expected) {
    if (logged.size() > 4000 && logged.compare(logged.size() - 3, 3, "...") == 0) {
        return expected.compare(0, logged.size() - 3, logged, 0, logged.size() - 3) == 0;
    }
    return logged == expected;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    eventSink = std::make_shared<EventSink>();
    orvane::Tracer::getInstance().addSink(eventSink);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orvane::AnyPacket::Frame frame;
    std::string whole(reinterpret_cast<const char*>(data), size);
    std::string payload = frame.decode(whole);
    if (payload.size() > 255) fail("payload over 255 bytes");
    takeEvents();
    if (whole.size() <= 255 && frame.decode(frame.encode(whole)) != whole) fail("round trip");

    FuzzedDataProvider input(data, size);
    orvane::AnyPacket packet;
    orvane::test::ParseModel model;
    while (input.remaining_bytes() > 0) {
        size_t piece = input.ConsumeIntegralInRange<size_t>(0, 600);
        std::string chunk = input.ConsumeBytesAsString(piece);
        // Repeating a piece grows the buffer past its 8192-byte limit.
        int repeat = input.ConsumeBool() ? 1 : input.ConsumeIntegralInRange(1, 20);
        for (int i = 0; i < repeat; ++i) {
            std::vector<std::string> frames = packet.parse(chunk);
            if (frames != model.parse(chunk)) fail("frames differ from the model");
            std::vector<std::string> events = takeEvents();
            if (events.size() != model.events.size()) fail("log lines differ from the model");
            for (size_t k = 0; k < events.size(); ++k) {
                if (!sameEvent(events[k], model.events[k])) fail("log line differs");
            }
            model.events.clear();
            for (const std::string& raw : frames) {
                std::string decoded = frame.decode(raw);
                if (!decoded.empty() && frame.decode(frame.encode(decoded)) != decoded) {
                    fail("decoded payload does not round-trip");
                }
            }
            takeEvents();
        }
    }
    return 0;
}
