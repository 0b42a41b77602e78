#pragma once

#include <orvane/Export.h>

#include <cstddef>
#include <string>
#include <vector>

namespace orvane {

// CRC-16 with the reflected polynomial 0xA001 (0x8005), input and output
// reflected, no final XOR, started from the caller's value: from 0xFFFF it is
// CRC-16/MODBUS. Table-driven, 16 bytes per step; stateless, any thread.
class ORVANE_API CRCCheck {
  public:
    // CRC of every byte of `data` from `init`; empty data returns `init`.
    static unsigned short check16CRC8005(const std::string& data, const unsigned short& init);
    // The same over `len` bytes at `data`; null or zero length returns `init`.
    static unsigned short check16CRC8005(const char* data, size_t len, unsigned short init);
};

// Cuts a byte stream into frames and frames into packets. A frame is
//     A5 | escaped( length, payload, crc low, crc high ) | A5
// where the CRC (CRC-16/MODBUS) covers the length byte and the payload, and
// the escaping sends A5 as A0 05 and A0 as A0 0A, so A5 appears on the wire
// only as a mark. Errors are logged once and give an empty result; nothing
// throws on bad data.
//
// An AnyPacket keeps the bytes received but not yet cut and belongs to one
// reader thread (no locking). Its receive buffer is emptied, with an error
// line, when it holds more than 8192 bytes at the start of a parse call.
// Deliberate quirk: when a parse call finds k junk bytes before the first
// mark, its first cut begins k bytes into the frame that follows them, so that
// frame comes back truncated (and decode refuses it) or waits for a later
// mark; frames without junk in front are cut whole.
class ORVANE_API AnyPacket {
  public:
    // Builds and checks single frames. Keeps no state: one Frame serves any
    // number of packets, from any thread.
    class ORVANE_API Frame {
      public:
        Frame();

        // The complete raw frame for `payload`, both marks included. Only
        // the low 8 bits of the payload length are sent: keep payloads to
        // 255 bytes, longer ones are refused by decode.
        std::string encode(const std::string& payload) const;
        // The payload of one complete raw frame, or "" on any error (after
        // one error line). An empty payload also gives "", without a line.
        std::string decode(const std::string& frame) const;

      protected:
        // This class's own name, printed in the log lines of the operations it defines.
        std::string className;
    };

    AnyPacket();

    // Appends `data` to the receive buffer and returns the complete raw
    // frames now in it, in order of arrival, still escaped and with both
    // marks; pass each to Frame::decode. An incomplete frame waits in the
    // buffer for the next call.
    std::vector<std::string> parse(const std::string& data);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    std::string received;
};

}  // namespace orvane
