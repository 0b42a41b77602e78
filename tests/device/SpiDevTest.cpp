#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/SpiDev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include "IoctlSpy.h"
#include "device/SpiTransfer.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

// This machine has no SPI controller: a stand-in driver answers the spidev
// ioctls for a temporary file.
struct FakeSpidev {
    unsigned long failRequest = 0;   // this request fails with EIO
    uint32_t maxSpeedHz = 10000000;  // the driver clamps the clock to this
    uint8_t mode = 0;
    uint8_t bits = 0;
    uint32_t speedHz = 0;
    std::vector<spi_ioc_transfer> messages;
    std::vector<unsigned char> clockedOut;

    // The device answers byte i of every message with 0xA0 + i.
    int serve(unsigned long request, void* arg) {
        if (request == failRequest) {
            errno = EIO;
            return -1;
        }
        switch (request) {
            case SPI_IOC_WR_MODE:
                mode = *static_cast<uint8_t*>(arg);
                return 0;
            case SPI_IOC_RD_MODE:
                *static_cast<uint8_t*>(arg) = mode;
                return 0;
            case SPI_IOC_WR_BITS_PER_WORD:
                bits = *static_cast<uint8_t*>(arg);
                return 0;
            case SPI_IOC_RD_BITS_PER_WORD:
                *static_cast<uint8_t*>(arg) = bits;
                return 0;
            case SPI_IOC_WR_MAX_SPEED_HZ: {
                uint32_t wanted = *static_cast<uint32_t*>(arg);
                speedHz = wanted < maxSpeedHz ? wanted : maxSpeedHz;
                return 0;
            }
            case SPI_IOC_RD_MAX_SPEED_HZ:
                *static_cast<uint32_t*>(arg) = speedHz;
                return 0;
            default:
                break;
        }
        if (request != SPI_IOC_MESSAGE(1)) {
            errno = ENOTTY;
            return -1;
        }
        const spi_ioc_transfer& message = *static_cast<spi_ioc_transfer*>(arg);
        messages.push_back(message);
        auto* tx = reinterpret_cast<const unsigned char*>(static_cast<uintptr_t>(message.tx_buf));
        auto* rx = reinterpret_cast<unsigned char*>(static_cast<uintptr_t>(message.rx_buf));
        for (uint32_t i = 0; i < message.len; ++i) {
            if (tx != nullptr) clockedOut.push_back(tx[i]);
            if (rx != nullptr) rx[i] = static_cast<unsigned char>(0xA0 + i);
        }
        return static_cast<int>(message.len);
    }
};

// A temporary file served by a FakeSpidev.
class FakeSpidevFile {
  public:
    FakeSpidevFile()
        : path(create(test::tempPath("spidev"))),
          spy(path, [this](int, unsigned long request, void* arg) {
              return driver.serve(request, arg);
          }) {}
    ~FakeSpidevFile() { unlink(path.c_str()); }

    const std::string path;
    FakeSpidev driver;

  private:
    static std::string create(const std::string& name) {
        ::close(::open(name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
        return name;
    }
    test::IoctlSpy spy;
};

std::string lastLine(const std::string& text) {
    std::string line = test::LogCapture::get().waitLine(text);
    test::LogCapture::get().clear();
    return line;
}

TEST(SpiDev, OpenOfAMissingDeviceNamesThePath) {
    test::LogCapture::get().clear();
    int fds = test::openFdCount();
    SpiDev spi;
    EXPECT_FALSE(spi.open("/nonexistent/spidev0.0", 0, 1000000, 0, 8));
    EXPECT_EQ(lastLine("open /nonexistent"),
              "<E>DATE [SpiDev::open,L#] open /nonexistent/spidev0.0 error!");
    EXPECT_EQ(spi.fd(), -1);
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(SpiDev, OpenOfANonSpiDeviceFailsAtTheFirstIoctlAndClosesIt) {
    test::LogCapture::get().clear();
    int fds = test::openFdCount();
    SpiDev spi;
    // Loopback with dual transmit also asks for dual receive; the line shows the full mode.
    EXPECT_FALSE(spi.open("/dev/null", SPI_LOOP | SPI_TX_DUAL | SPI_CPHA, 1000000, 5, 8));
    EXPECT_EQ(lastLine("set SPI mode"),
              "<E>DATE [SpiDev::open,L#] set SPI mode error, mode: 0x00000521");
    EXPECT_EQ(spi.fd(), -1);
    EXPECT_EQ(spi.mode(), 0u);
    EXPECT_EQ(spi.speed(), 500000u);
    EXPECT_EQ(spi.delay(), 0u);
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(SpiDev, StartsWithDefaultsAndKeepsWhatTheDriverReadsBack) {
    FakeSpidevFile device;
    int fds = test::openFdCount();
    {
        SpiDev spi;
        EXPECT_EQ(spi.fd(), -1);
        EXPECT_EQ(spi.speed(), 500000u);
        EXPECT_EQ(spi.bits(), 8u);
        EXPECT_EQ(spi.mode(), 0u);
        EXPECT_EQ(spi.delay(), 0u);
        // Dual and quad bits do not fit the 8-bit mode request.
        ASSERT_TRUE(spi.open(device.path, SPI_MODE_3 | SPI_CS_HIGH | SPI_TX_QUAD, 20000000, 7, 16));
        EXPECT_GE(spi.fd(), 0);
        EXPECT_EQ(device.driver.mode, SPI_MODE_3 | SPI_CS_HIGH);
        EXPECT_EQ(spi.mode(), static_cast<uint32_t>(SPI_MODE_3 | SPI_CS_HIGH));
        EXPECT_EQ(spi.bits(), 16u);
        EXPECT_EQ(device.driver.speedHz, 10000000u);
        EXPECT_EQ(spi.speed(), 10000000u);  // clamped by the driver
        EXPECT_EQ(spi.delay(), 7u);

        // A second open replaces the first descriptor.
        ASSERT_TRUE(spi.open(device.path, SPI_MODE_0, 1000000, 0, 8));
        EXPECT_EQ(test::openFdCount(), fds + 1);
        EXPECT_EQ(spi.mode(), 0u);
        EXPECT_EQ(spi.speed(), 1000000u);
        spi.close();
        EXPECT_EQ(spi.fd(), -1);
        spi.close();
    }
    EXPECT_EQ(test::openFdCount(), fds);
}

TEST(SpiDev, EachFailingIoctlOfOpenHasItsLineAndClosesTheDevice) {
    FakeSpidevFile device;
    struct Step {
        unsigned long request;
        const char* line;
    };
    const Step steps[] = {
        {SPI_IOC_WR_MODE, "set SPI mode error, mode: 0x00000002"},
        {SPI_IOC_RD_MODE, "get SPI mode error: Input/output error"},
        {SPI_IOC_WR_BITS_PER_WORD, "set SPI bits error, bits: 9"},
        {SPI_IOC_RD_BITS_PER_WORD, "get SPI bits error: Input/output error"},
        {SPI_IOC_WR_MAX_SPEED_HZ, "set SPI speed error, speed: -294967296"},
        {SPI_IOC_RD_MAX_SPEED_HZ, "get SPI speed error: Input/output error"},
    };
    int fds = test::openFdCount();
    for (const Step& step : steps) {
        SCOPED_TRACE(step.line);
        test::LogCapture::get().clear();
        device.driver.failRequest = step.request;
        device.driver.maxSpeedHz = UINT32_MAX;
        SpiDev spi;
        EXPECT_FALSE(spi.open(device.path, SPI_CPOL, 4000000000u, 3, 9));
        EXPECT_EQ(lastLine(" SPI "), std::string("<E>DATE [SpiDev::open,L#] ") + step.line);
        EXPECT_EQ(spi.fd(), -1);
        EXPECT_EQ(spi.delay(), 0u);
        EXPECT_EQ(test::openFdCount(), fds);
    }
}

TEST(SpiDev, TransferReturnsTheAnswerThatFollowsTheCommand) {
    FakeSpidevFile device;
    SpiDev spi;
    ASSERT_TRUE(spi.open(device.path, SPI_MODE_1, 2000000, 4, 8));

    // Two command bytes, then three clocked out while the answer comes in.
    unsigned char tx[5] = {0x9F, 0x01, 0x00, 0x00, 0x00};
    unsigned char rx[4] = {0x55, 0x55, 0x55, 0x55};
    ASSERT_TRUE(spi.transfer(tx, 2, rx, 3));
    ASSERT_EQ(device.driver.messages.size(), 1u);
    const spi_ioc_transfer& message = device.driver.messages[0];
    EXPECT_EQ(message.len, 5u);
    EXPECT_EQ(message.speed_hz, 2000000u);
    EXPECT_EQ(message.delay_usecs, 4u);
    EXPECT_EQ(message.bits_per_word, 8u);
    EXPECT_EQ(message.cs_change, 0u);
    EXPECT_EQ(device.driver.clockedOut, std::vector<unsigned char>(tx, tx + 5));
    EXPECT_EQ(rx[0], 0xA2);
    EXPECT_EQ(rx[1], 0xA3);
    EXPECT_EQ(rx[2], 0xA4);
    EXPECT_EQ(rx[3], 0x55);  // nothing beyond rxlen

    // Without an answer only txlen bytes go out and rx is not touched.
    device.driver.messages.clear();
    ASSERT_TRUE(spi.transfer(tx, 2, nullptr, 3));
    ASSERT_TRUE(spi.transfer(tx, 1, rx, 0));
    ASSERT_EQ(device.driver.messages.size(), 2u);
    EXPECT_EQ(device.driver.messages[0].len, 2u);
    EXPECT_EQ(device.driver.messages[0].rx_buf, 0u);
    EXPECT_EQ(device.driver.messages[1].len, 1u);
    EXPECT_EQ(rx[0], 0xA2);

    // A message larger than the stack buffer arrives the same way.
    std::vector<unsigned char> bigTx(1000, 0x11), bigRx(900, 0);
    ASSERT_TRUE(spi.transfer(bigTx.data(), 100, bigRx.data(), 900));
    EXPECT_EQ(bigRx[0], static_cast<unsigned char>(0xA0 + 100));
    EXPECT_EQ(bigRx[899], static_cast<unsigned char>(0xA0 + 999));
}

TEST(SpiDev, TransferRefusesBadInputAndReportsDriverErrors) {
    FakeSpidevFile device;
    SpiDev spi;
    unsigned char tx[4] = {1, 2, 3, 4};
    unsigned char rx[4] = {9, 9, 9, 9};
    test::LogCapture::get().clear();
    EXPECT_FALSE(spi.transfer(nullptr, 4, rx, 4));
    EXPECT_FALSE(spi.transfer(tx, 0, rx, 4));
    EXPECT_TRUE(test::LogCapture::get().waitFor("txbuf cannot be null!", 3000, 2));
    EXPECT_EQ(lastLine("txbuf"), "<E>DATE [SpiDev::transfer,L#] txbuf cannot be null!");

    EXPECT_FALSE(spi.transfer(tx, 2, rx, UINT_MAX));
    EXPECT_EQ(lastLine("too long"),
              "<E>DATE [SpiDev::transfer,L#] message too long: 2 + 4294967295 bytes");

    EXPECT_FALSE(spi.transfer(tx, 2, rx, 2));  // never opened
    EXPECT_EQ(lastLine("SPI_IOC_MESSAGE"),
              "<E>DATE [SpiDev::transfer,L#] SPI_IOC_MESSAGE error: Bad file descriptor");

    ASSERT_TRUE(spi.open(device.path, 0, 1000000, 0, 8));
    device.driver.failRequest = SPI_IOC_MESSAGE(1);
    EXPECT_FALSE(spi.transfer(tx, 2, rx, 2));
    EXPECT_EQ(lastLine("SPI_IOC_MESSAGE"),
              "<E>DATE [SpiDev::transfer,L#] SPI_IOC_MESSAGE error: Input/output error");
    EXPECT_EQ(rx[0], 9);
}

TEST(SpiDevTransferRecord, FollowsTheWireWidthsOfTheMode) {
    unsigned char tx[2] = {0, 0};
    unsigned char rx[2] = {0, 0};
    auto txAddr = reinterpret_cast<uintptr_t>(tx);
    auto rxAddr = reinterpret_cast<uintptr_t>(rx);

    // Every field, word delay and padding included: the rest stays 0.
    spi_ioc_transfer expected{};
    expected.tx_buf = txAddr;
    expected.rx_buf = rxAddr;
    expected.len = 2;
    expected.speed_hz = 1000;
    expected.delay_usecs = 3;
    expected.bits_per_word = 8;
    spi_ioc_transfer plain = detail::spiTransferRecord(tx, rx, 2, SPI_MODE_0, 1000, 3, 8);
    EXPECT_EQ(memcmp(&plain, &expected, sizeof expected), 0);

    // Transmitting on more wires drops the receive buffer, quad wins over dual.
    spi_ioc_transfer txQuad =
        detail::spiTransferRecord(tx, rx, 2, SPI_TX_DUAL | SPI_TX_QUAD | SPI_RX_DUAL, 0, 0, 8);
    EXPECT_EQ(txQuad.tx_nbits, 4u);
    EXPECT_EQ(txQuad.rx_nbits, 2u);
    EXPECT_EQ(txQuad.tx_buf, txAddr);
    EXPECT_EQ(txQuad.rx_buf, 0u);

    // Receiving on more wires drops the transmit buffer.
    spi_ioc_transfer rxDual = detail::spiTransferRecord(tx, rx, 2, SPI_RX_DUAL, 0, 0, 8);
    EXPECT_EQ(rxDual.tx_nbits, 0u);
    EXPECT_EQ(rxDual.rx_nbits, 2u);
    EXPECT_EQ(rxDual.tx_buf, 0u);
    EXPECT_EQ(rxDual.rx_buf, rxAddr);

    // In loopback both buffers stay.
    spi_ioc_transfer loop =
        detail::spiTransferRecord(tx, rx, 2, SPI_LOOP | SPI_TX_QUAD | SPI_RX_QUAD, 0, 0, 8);
    EXPECT_EQ(loop.tx_nbits, 4u);
    EXPECT_EQ(loop.rx_nbits, 4u);
    EXPECT_EQ(loop.tx_buf, txAddr);
    EXPECT_EQ(loop.rx_buf, rxAddr);

    EXPECT_EQ(detail::spiOpenMode(SPI_LOOP | SPI_TX_DUAL), SPI_LOOP | SPI_TX_DUAL | SPI_RX_DUAL);
    EXPECT_EQ(detail::spiOpenMode(SPI_LOOP | SPI_TX_QUAD), SPI_LOOP | SPI_TX_QUAD | SPI_RX_QUAD);
    EXPECT_EQ(detail::spiOpenMode(SPI_TX_DUAL | SPI_TX_QUAD), SPI_TX_DUAL | SPI_TX_QUAD);
}

}  // namespace
}  // namespace orvane
