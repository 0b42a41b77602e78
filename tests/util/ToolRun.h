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
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return out;
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) out.append(chunk, n);
    pclose(pipe);
    return out;
}

// `size` pseudo-random bytes, the same for the same seed.
inline std::string randomBytes(size_t size, unsigned seed) {
    std::mt19937 engine(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(engine() & 0xFF);
    return bytes;
}

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

}  // namespace test
}  // namespace orvane
