#pragma once

#include <cstdio>
#include <string>

namespace orvane::test {

// Standard output of a shell command ("" when it cannot run).
inline std::string toolOutput(const std::string& command) {
    std::string out;
    char chunk[4096];
    FILE* pipe = popen(command.c_str(), "r");
    for (size_t n; pipe != nullptr && (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        out.append(chunk, n);
    if (pipe != nullptr) pclose(pipe);
    return out;
}

}  // namespace orvane::test
