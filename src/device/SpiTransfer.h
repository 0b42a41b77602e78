#pragma once

// The one-record message that SpiDev::transfer() hands to SPI_IOC_MESSAGE(1),
// kept apart so it can be checked without an SPI controller. Hidden in the
// library; the tests build their own copy of SpiTransfer.cpp.

#include <linux/spi/spidev.h>

#include <cstdint>

namespace orvane {
namespace detail {

// One transfer of len bytes from tx into rxBuffer (either may be null) with
// the device's speed, delay and word size. The wire widths follow the mode;
// outside loopback a dual or quad transmit drops the receive buffer, and
// otherwise a dual or quad receive drops the transmit buffer.
spi_ioc_transfer spiTransferRecord(const unsigned char* tx, unsigned char* rxBuffer, uint32_t len,
                                   uint32_t mode, uint32_t speedHz, uint16_t delayUs,
                                   uint8_t bitsPerWord);

}  // namespace detail
}  // namespace orvane
