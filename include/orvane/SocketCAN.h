#pragma once

#include <orvane/Export.h>
#include <orvane/Socket.h>

#include <cstdint>
#include <string>

namespace orvane {

// One classic CAN frame, laid out exactly as the kernel's struct can_frame
// (16 bytes), so a frame travels as one read or write. The identifier word
// keeps the extended-format flag in bit 31 (0x80000000). id() always masks
// to 11 bits, also for extended frames, because format() reports 0 for every
// frame; canid() gives the whole word. A plain value: any thread may use it.
class ORVANE_API CANFrame {
  public:
    CANFrame();
    // Copies `len` bytes when len is 1..8 and data is not null; otherwise
    // the frame has no data bytes.
    CANFrame(unsigned int id, const char* data, unsigned char len);
    // As above; format 1 sets the extended-format flag in the identifier.
    CANFrame(unsigned int id, const char* data, unsigned char len, unsigned char format);

    // Always 0 (standard frame), also for extended frames.
    int format() const { return 0; }
    // Always 0 (data frame).
    int type() const { return 0; }
    // Always 0 (no error frame).
    int error() const { return 0; }
    // The identifier cut to 11 bits (format() is always 0).
    unsigned int id() const { return canid_ & (format() == 1 ? 0x1FFFFFFFu : 0x7FFu); }
    // The whole identifier word with the kernel's flag bits.
    unsigned int canid() const { return canid_; }
    // The number of data bytes, 0..8.
    unsigned char dataLen() const { return dlc; }
    // The eight data bytes.
    char* data() { return payload; }
    // The eight data bytes.
    const char* data() const { return payload; }

  private:
    uint32_t canid_;
    uint8_t dlc;
    [[maybe_unused]] uint8_t pad[3];  // reserved, zero
    alignas(8) char payload[8];
};

static_assert(sizeof(CANFrame) == 16, "CANFrame must match the kernel's 16-byte can_frame");

// A raw CAN socket bound to one SocketCAN network interface (open(ifName,
// port), port ignored). recvData reads exactly one 16-byte frame whatever
// `len` (at least 16) is; sendData writes what it is given in one write.
// open() looks the interface up with its name cut by its last character
// (open("vcan0x") binds vcan0), and fails silently when that interface does
// not exist. Peek, options and setConnection are not supported. No locking:
// one SocketCAN per thread. Filters, error frames and CAN FD are not supported.
class ORVANE_API SocketCAN : public Socket {
  public:
    SocketCAN();
    bool open(const std::string& ifName, unsigned short port) override;
    bool close() override;
    int peekData(char* buf, int len, int timeoutUs) override;
    int recvData(char* buf, int len, int timeoutUs) override;
    int sendData(const char* data, int len, int timeoutUs) override;
    int setOption(int opt, int value) override;
    int getOption(int opt) override;
    bool setConnection(const std::string& addr, unsigned short port) override;

    // The interface name open() was given.
    std::string interface() const { return ifName; }
    // One frame; 0 on success, -1 on an error, -2 on a timeout.
    int recvFrame(CANFrame* frame, int timeoutUs);
    // One frame; 0 on success, -1 on an error, -2 on a timeout.
    int sendFrame(const CANFrame& frame, int timeoutUs);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The interface name open() was given.
    std::string ifName;
};

}  // namespace orvane
