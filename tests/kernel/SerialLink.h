#pragma once

#include <orvane/SerialPort.h>

#include <string>

namespace orvane {
namespace test {

// Reads from `port` until `len` bytes came or a read waited a second in vain.
inline std::string receive(SerialPort& port, size_t len) {
    std::string got;
    char buf[1024];
    for (int n; got.size() < len && (n = port.recvData(buf, sizeof buf, 1000000)) > 0;)
        got.append(buf, static_cast<size_t>(n));
    return got;
}

// Every byte value once, 0 to 255: line ends, ^C, ^D, XON/XOFF and DEL among
// them, which only a raw line passes unchanged.
inline std::string everyByte() {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
    return bytes;
}

}  // namespace test
}  // namespace orvane
