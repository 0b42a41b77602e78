#pragma once

// The pure parts of SerialPort::open, kept apart so every termios bit can be
// checked for every setting (a pseudo-terminal rewrites some of them).

#include <orvane/Export.h>
#include <termios.h>

namespace orvane {
namespace detail {

// The termios speed constant of a rate in the port's baud table (1200 to
// 921600); false for any other rate.
ORVANE_API bool serialBaudSpeed(int baud, speed_t* speed);

// Turns tio, as tcgetattr gave it, into the port's raw line configuration.
// Deliberate quirks kept bit for bit: parity 2 enables no parity bit,
// parity 3 also clears CSTOPB, and flow control 2 ORs 0x1C00 (the value of
// IXON | IXANY | IXOFF) into c_cflag, where it means HUPCL | CLOCAL | CBAUDEX.
ORVANE_API void serialRawTermios(termios* tio, speed_t speed, int databits, int stopbits,
                                 int parity, int flowctrl);

}  // namespace detail
}  // namespace orvane
