#pragma once

#include <orvane/Export.h>
#include <orvane/IODevice.h>

#include <string>

namespace orvane {

// A tty serial line. The line settings (attributes BAUD to FLOWCTRL) are set
// while the port is closed and applied by the next open(), which configures
// the line raw: no input or output processing, no echo, VMIN 1, VTIME 10.
// DATAMODE and RS485DIR act on the driver at once and only while open:
// datamode 2 switches the kernel's RS-485 mode on (TIOCSRS485), rs485dir is
// handed to the driver with ioctl request 16; neither ioctl's result is
// checked, so on a tty without RS-485 support both calls still return 0.
// Errors are logged at error level: control calls return false or -1, data
// calls -1 for an error and -2 for a timeout (microseconds; negative waits
// without limit). setAttribute() returns 0 for an unknown attribute number
// on a closed port, after logging it.
// An open() that fails after the device was opened (unsupported baud, a
// tcsetattr failure) leaves the port open: close() it before trying again.
// Quirks kept on purpose: parity 2 enables no parity bit, parity 3 also
// clears the second stop bit, and flow control 2 sets the bits 0x1C00 of
// c_cflag (HUPCL, CLOCAL and CBAUDEX) instead of software flow control.
// No locking: sendData and recvData may run on two threads at once, the
// other calls belong to one thread.
class ORVANE_API SerialPort : public IODevice {
  public:
    // The attribute numbers of setAttribute and getAttribute.
    enum Attribute {
        BAUD = 0,      // 1200 ... 921600, default 115200
        DATABITS = 1,  // 5 to 8, default 8
        STOPBITS = 2,  // 1 or 2, default 1
        PARITY = 3,    // 0 none, 1 odd, 2 none, 3 none and one stop bit; default 0
        FLOWCTRL = 4,  // 0 none, 1 RTS/CTS, 2 the 0x1C00 bits; default 0
        DATAMODE = 5,  // 0, 1, 2 (RS-485); default 0
        RS485DIR = 6,  // 0 or 1, passed to the driver; default 0
    };

    SerialPort();
    ~SerialPort() override;

    // mode: 0 read-only, 1 write-only, 2 read-write.
    bool open(const std::string& path, int mode) override;
    bool close() override;
    // The bytes read (at most len, one read), -2 when nothing came within
    // the timeout, -1 for an error. 0 at once means end of input: the line
    // hung up (the other end of a pseudo-terminal closed, a USB adapter was
    // pulled out) and every later call returns 0 or -1 at once, without a
    // log line. Check isHungUp(), then close() and reopen the path.
    int recvData(char* buf, int len, int timeoutUs) override;
    // Waits up to timeoutUs until writable, then one write(): the byte count, -1 on error, -2 on
    // timeout.
    int sendData(const char* data, int len, int timeoutUs) override;
    // True when the open line has hung up or failed (poll reports POLLHUP,
    // POLLERR or POLLNVAL): the device is gone, and only a close() and a new
    // open() of the path can bring it back. False for a live line, silent or
    // not, and for a closed port. One poll without waiting; logs nothing.
    // Any thread.
    bool isHungUp();

    // 0 on success, -1 for a refused value or the wrong open state.
    virtual int setAttribute(int attr, int value);
    // The stored value of attribute 0 to 6, -1 for any other number.
    virtual int getAttribute(int attr);

    // A whole line configuration, beside the numbered attributes: every
    // common line, 8E1 (the default line of Modbus RTU) and XON/XOFF
    // included, which the attribute codes cannot express.
    struct LineSettings {
        // Parity bit of a character.
        enum class Parity { None, Odd, Even };
        // Flow control.
        enum class Flow { None, Hardware, Software };  // RTS/CTS, XON/XOFF

        int baud = 115200;  // any rate with a termios constant, 50 ... 4000000
        int dataBits = 8;   // 5 to 8
        // Parity bit: none, odd or even.
        Parity parity = Parity::None;
        int stopBits = 1;  // 1 or 2
        // Flow control: none, RTS/CTS or XON/XOFF.
        Flow flow = Flow::None;
    };

    // Applies `line` to the open port at once (tcsetattr, TCSANOW), raw as
    // open() configures it (no input or output processing, no echo, VMIN 1,
    // VTIME 10) and with CLOCAL set, so the modem lines do not gate the port.
    // Parity enables input parity checking (INPCK); software flow control
    // sets IXON and IXOFF. The numbered attributes keep their values and are
    // used again by the next open(); read the line itself with getLine().
    // False, with a log line, for a closed port, a value out of range (the
    // port stays as it was) or a refusal by the driver. A driver that keeps
    // a setting it cannot do (a speed its UART lacks) still succeeds here:
    // compare with getLine(). One thread, as open().
    bool setLine(const LineSettings& line);
    // The line as the driver applied it (tcgetattr): speed, data bits,
    // parity, stop bits and flow control (hardware when CRTSCTS is set,
    // software when IXON or IXOFF is). False, with a log line, for a closed
    // port or when tcgetattr fails; *line is then unchanged. Any thread.
    bool getLine(LineSettings* line);
    // "115200 8N1 flow none": the line as text for log lines.
    static std::string lineText(const LineSettings& line);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    int exchange(char* in, const char* out, int len, int timeoutUs, const char* method);

    int attributes[7];
};

}  // namespace orvane
