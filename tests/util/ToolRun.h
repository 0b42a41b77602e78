#pragma once

#include <cstdio>
#include <fstream>
#include <random>
#include <string>

namespace orvane {
namespace test {

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

// `size` pseudo-random bytes, the same for the same seed, also written to
// `path` when one is given.
inline std::string randomBytes(size_t size, unsigned seed, const std::string& path = "") {
    std::mt19937 engine(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(engine() & 0xFF);
    if (!path.empty()) std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    return bytes;
}

}  // namespace test
}  // namespace orvane
