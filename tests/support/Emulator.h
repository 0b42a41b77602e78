#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace orvane {
namespace test {

// A cross build runs its tests under a user-mode emulator and tells every
// test its command line in ORVANE_TEST_EMULATOR (for example
// "/usr/bin/qemu-aarch64 -L /usr/aarch64-linux-gnu", words split at spaces).
// Natively the variable is not set. The emulator runs the target's programs
// but does not pass on every kernel interface: a test that needs one it
// lacks checks underEmulator() first and skips, naming what is missing.

// The emulator's command line, word by word; empty when running natively.
inline std::vector<std::string> emulatorCommand() {
    std::vector<std::string> words;
    const char* value = std::getenv("ORVANE_TEST_EMULATOR");
    std::istringstream in(value ? value : "");
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

// The emulator's program name ("qemu-aarch64"), or "" when running natively.
inline std::string emulator() {
    std::vector<std::string> command = emulatorCommand();
    return command.empty() ? "" : command[0].substr(command[0].rfind('/') + 1);
}

inline bool underEmulator() { return !emulatorCommand().empty(); }

// The command line that runs `argv`, a program built for the target (a test
// binary or an example), from a test: through the emulator when there is one,
// since the host kernel cannot execute the target's binaries itself.
inline std::vector<std::string> targetCommand(std::vector<std::string> argv) {
    std::vector<std::string> command = emulatorCommand();
    command.insert(command.end(), argv.begin(), argv.end());
    return command;
}

}  // namespace test
}  // namespace orvane
