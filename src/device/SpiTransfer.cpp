#include "device/SpiTransfer.h"

namespace orvane {

namespace detail {

spi_ioc_transfer spiTransferRecord(const unsigned char* tx, unsigned char* rxBuffer, uint32_t len,
                                   uint32_t mode, uint32_t speedHz, uint16_t delayUs,
                                   uint8_t bitsPerWord) {
    spi_ioc_transfer record{};  // cs_change, word delay and padding stay 0
    record.tx_buf = reinterpret_cast<uintptr_t>(tx);
    record.rx_buf = reinterpret_cast<uintptr_t>(rxBuffer);
    record.len = len;
    record.speed_hz = speedHz;
    record.delay_usecs = delayUs;
    record.bits_per_word = bitsPerWord;
    if ((mode & SPI_TX_QUAD) != 0) {
        record.tx_nbits = 4;
    } else if ((mode & SPI_TX_DUAL) != 0) {
        record.tx_nbits = 2;
    }
    if ((mode & SPI_RX_QUAD) != 0) {
        record.rx_nbits = 4;
    } else if ((mode & SPI_RX_DUAL) != 0) {
        record.rx_nbits = 2;
    }
    if ((mode & SPI_LOOP) == 0) {
        if ((mode & (SPI_TX_DUAL | SPI_TX_QUAD)) != 0) {
            record.rx_buf = 0;
        } else if ((mode & (SPI_RX_DUAL | SPI_RX_QUAD)) != 0) {
            record.tx_buf = 0;
        }
    }
    return record;
}

}  // namespace detail

}  // namespace orvane
