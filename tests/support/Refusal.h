#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace orvane {
namespace test {

// Checks the library's rule for bad input: `call` returns false and logs
// exactly `line` (normalised as LogCapture::normalise gives it) and nothing else.
inline void expectRefusal(const std::function<bool()>& call, const std::string& line) {
    bool ok = true;
    std::vector<std::string> lines = LogCapture::get().linesDuring([&] { ok = call(); });
    EXPECT_FALSE(ok) << line;
    EXPECT_EQ(lines, std::vector<std::string>{line});
}

}  // namespace test
}  // namespace orvane
