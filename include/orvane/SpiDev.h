#pragma once

#include <orvane/Export.h>
#include <orvane/UniqueFd.h>

#include <cstdint>
#include <string>

namespace orvane {

// A Linux spidev character device (/dev/spidevB.C). open() writes mode, word
// size and clock through the spidev ioctls and keeps what the driver reads
// back; transfer() runs one full-duplex message.
// Failures are logged at error level and reported by a false result; an open
// that fails after the device was opened closes it again, and an open on an
// open device closes the previous one first.
// Only the low byte of the mode reaches the driver, so the dual and quad
// wire bits (0x100 and above) are never applied nor read back.
// When an answer is expected, the caller's tx buffer must hold txlen + rxlen
// bytes: the bytes after txlen are clocked out while the answer comes in.
// Messages above 256 bytes allocate a receive buffer per transfer.
// Not thread-safe: one thread uses a SpiDev.
class ORVANE_API SpiDev {
  public:
    SpiDev();
    virtual ~SpiDev();
    SpiDev(const SpiDev&) = delete;
    SpiDev& operator=(const SpiDev&) = delete;

    // Opens the spidev device at `path`, writes mode, word size and clock and
    // stores the delay; false (logged) when it cannot be opened or a setting
    // is refused (the device is then closed).
    bool open(const std::string& path, unsigned int spiMode, unsigned int speedHz,
              unsigned short delayUs, unsigned char bitsPerWord);
    // rx may be null (nothing is read back); rxlen bytes of the answer that
    // follow the first txlen bytes of the message are copied to rx.
    bool transfer(unsigned char* tx, unsigned int txlen, unsigned char* rx, unsigned int rxlen);
    // Closes the device; nothing when closed.
    void close();

    // The descriptor, or -1 when closed.
    int fd() const { return fd_.get(); }
    // The mode byte the driver read back in open(); 0 before.
    uint32_t mode() const { return mode_; }
    // The clock in hertz the driver read back in open(); 500000 before.
    uint32_t speed() const { return speed_; }
    // The delay in microseconds after each transfer, as given to open(); 0 before.
    uint16_t delay() const { return delay_; }
    // The bits per word the driver read back in open(); 8 before.
    uint8_t bits() const { return bits_; }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    UniqueFd fd_;
    uint32_t mode_;
    uint32_t speed_;
    uint16_t delay_;
    uint8_t bits_;
};

}  // namespace orvane
