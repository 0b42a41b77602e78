#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace orvane::test {

// A cross build runs its tests under a user-mode emulator and tells every
// test its command line in ORVANE_TEST_EMULATOR (for example
// "/usr/bin/qemu-aarch64 -L /usr/aarch64-linux-gnu", words split at spaces).
// Natively the variable is not set. The emulator runs the target's programs
// but does not pass on every kernel interface: a test that needs one it
// lacks checks underEmulator() first and skips, naming what is missing.
inline bool underEmulator() {
    const char* value = std::getenv("ORVANE_TEST_EMULATOR");
    return value != nullptr && *value != '\0';
}

// The command line that runs `argv`, a program built for the target (a test
// binary or an example), from a test: through the emulator when there is one,
// since the host kernel cannot execute the target's binaries itself.
inline std::vector<std::string> targetCommand(const std::vector<std::string>& argv) {
    std::vector<std::string> command;
    std::istringstream in(underEmulator() ? std::getenv("ORVANE_TEST_EMULATOR") : "");
    for (std::string word; in >> word;) command.push_back(word);
    command.insert(command.end(), argv.begin(), argv.end());
    return command;
}

}  // namespace orvane::test
