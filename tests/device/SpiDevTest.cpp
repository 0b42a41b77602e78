#include <orvane/SpiDev.h>

#include <cstring>

#include "device/SpiTransfer.h"
#include "support/Descriptors.h"
#include "support/Emulator.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

TEST(SpiDev, RefusesMissingDevicesAndBadInputWithItsLine) {
    const std::vector<int> fds = test::openFds();
    SpiDev spi;
    unsigned char buf[4] = {};
    EXPECT_FALSE(spi.open("/no/spidev0.0", 0, 1000000, 0, 8) || spi.transfer(buf, 2, buf, ~0u));
    // Not a spidev: the first ioctl fails. Loopback with dual transmit also
    // asks for dual receive, and the line shows the full mode.
    test::expectRefusal(
        [&] { return spi.open("/dev/null", SPI_LOOP | SPI_TX_DUAL | SPI_CPHA, 1000000, 5, 8); },
        "<E>DATE [SpiDev::open,L#] set SPI mode error, mode: 0x00000521");
    test::expectRefusal([&] { return spi.transfer(nullptr, 4, buf, 4); },
                        "<E>DATE [SpiDev::transfer,L#] txbuf cannot be null!");
    if (test::underEmulator()) GTEST_SKIP() << "qemu-user does not translate SPI_IOC_MESSAGE";
    test::expectRefusal([&] { return spi.transfer(buf, 2, buf, 2); },
                        "<E>DATE [SpiDev::transfer,L#] SPI_IOC_MESSAGE error: Bad file descriptor");
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
}

// Outside loopback, more transmit wires drop the receive buffer and more
// receive wires the transmit buffer; quad wins over dual.
TEST(SpiDevTransferRecord, CarriesTheSettingsAndFollowsTheWireWidths) {
    unsigned char tx[2] = {}, rx[2] = {};
    const uint64_t txAt = reinterpret_cast<uintptr_t>(tx), rxAt = reinterpret_cast<uintptr_t>(rx);
    const struct {
        uint32_t mode;
        uint64_t tx, rx;
        uint8_t txBits, rxBits;
    } rows[] = {
        {SPI_MODE_3, txAt, rxAt, 0, 0},
        {SPI_TX_DUAL | SPI_TX_QUAD | SPI_RX_DUAL, txAt, 0, 4, 2},
        {SPI_RX_DUAL, 0, rxAt, 0, 2},
        {SPI_LOOP | SPI_TX_QUAD | SPI_RX_QUAD, txAt, rxAt, 4, 4},
    };
    for (const auto& row : rows) {
        // Every field in the kernel's order: cs_change, word delay and padding stay 0.
        spi_ioc_transfer want{row.tx, row.rx, 2, 1000, 3, 16, 0, row.txBits, row.rxBits, 0, 0};
        spi_ioc_transfer got = detail::spiTransferRecord(tx, rx, 2, row.mode, 1000, 3, 16);
        EXPECT_EQ(memcmp(&got, &want, sizeof want), 0) << row.mode;
    }
}

}  // namespace
}  // namespace orvane
