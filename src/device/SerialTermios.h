#pragma once

// The pure parts of SerialPort::setLine() and getLine(): the termios a line
// setting becomes, and the setting a termios holds. Kept apart from the port
// so that tests check the bits directly; hidden in the library.

#include <orvane/SerialPort.h>
#include <termios.h>

#include <string>

namespace orvane {
namespace detail {

// The termios speed constant of a rate; false for a rate without one.
bool lineSpeed(int baud, speed_t* speed);
// The rate of a termios speed constant; -1 for an unknown constant.
int lineBaud(speed_t speed);
// Turns `tio` (as tcgetattr gave it) into the raw configuration of `line`.
// False, with the reason in *error and `tio` untouched, for a value out of
// range.
bool lineTermios(const SerialPort::LineSettings& line, termios* tio, std::string* error);
// The line settings a termios holds.
SerialPort::LineSettings lineOf(const termios& tio);

}  // namespace detail
}  // namespace orvane
