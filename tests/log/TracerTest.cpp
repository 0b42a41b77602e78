#include <gtest/gtest.h>
#include <orvane/Tracer.h>

#include "log/LogLine.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

struct Probe {
    std::string className = "Probe";
    void fail(int code) { ORVANE_ERROR("probe failed: %d", code); }
};

TEST(Tracer, DeliversLibraryLinesInTheirExactShape) {
    auto& capture = test::LogCapture::get();
    Probe().fail(7);
    EXPECT_EQ(capture.waitLine("probe failed"), "<E>DATE [Probe::fail,L#] probe failed: 7");
}

}  // namespace
}  // namespace orvane
