#include <fcntl.h>
#include <orvane/SpiDev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "device/SpiTransfer.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

// The mode open() writes: with SPI_LOOP, transmitting on two (four) wires
// also receives on two (four).
uint32_t spiOpenMode(uint32_t mode) {
    if ((mode & SPI_LOOP) != 0) {
        if ((mode & SPI_TX_DUAL) != 0) mode |= SPI_RX_DUAL;
        if ((mode & SPI_TX_QUAD) != 0) mode |= SPI_RX_QUAD;
    }
    return mode;
}

}  // namespace

namespace {

// Messages up to this size receive into a buffer on the stack.
constexpr unsigned int kStackMessage = 256;

}  // namespace

SpiDev::SpiDev() : className("SpiDev"), mode_(0), speed_(500000), delay_(0), bits_(8) {}

SpiDev::~SpiDev() { close(); }

bool SpiDev::open(const std::string& path, unsigned int spiMode, unsigned int speedHz,
                  unsigned short delayUs, unsigned char bitsPerWord) {
    close();
    fd_.reset(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd_) {
        ORVANE_ERROR("open %s error!", path.c_str());
        return false;
    }
    uint32_t wanted = spiOpenMode(spiMode);
    // The 8-bit mode requests carry only the low byte.
    uint8_t modeByte = static_cast<uint8_t>(wanted);
    if (ioctl(fd_.get(), SPI_IOC_WR_MODE, &modeByte) < 0) {
        ORVANE_ERROR("set SPI mode error, mode: 0x%08x", wanted);
        close();
        return false;
    }
    if (ioctl(fd_.get(), SPI_IOC_RD_MODE, &modeByte) < 0) {
        int err = errno;
        ORVANE_ERROR("get SPI mode error: %s", strerror(err));
        close();
        return false;
    }
    mode_ = modeByte;
    uint8_t wordBits = bitsPerWord;
    if (ioctl(fd_.get(), SPI_IOC_WR_BITS_PER_WORD, &wordBits) < 0) {
        ORVANE_ERROR("set SPI bits error, bits: %d", bitsPerWord);
        close();
        return false;
    }
    if (ioctl(fd_.get(), SPI_IOC_RD_BITS_PER_WORD, &bits_) < 0) {
        int err = errno;
        ORVANE_ERROR("get SPI bits error: %s", strerror(err));
        close();
        return false;
    }
    uint32_t clockHz = speedHz;
    if (ioctl(fd_.get(), SPI_IOC_WR_MAX_SPEED_HZ, &clockHz) < 0) {
        ORVANE_ERROR("set SPI speed error, speed: %d", static_cast<int>(speedHz));
        close();
        return false;
    }
    if (ioctl(fd_.get(), SPI_IOC_RD_MAX_SPEED_HZ, &speed_) < 0) {
        int err = errno;
        ORVANE_ERROR("get SPI speed error: %s", strerror(err));
        close();
        return false;
    }
    delay_ = delayUs;
    return true;
}

bool SpiDev::transfer(unsigned char* tx, unsigned int txlen, unsigned char* rx,
                      unsigned int rxlen) {
    if (tx == nullptr || txlen == 0) {
        ORVANE_ERROR("txbuf cannot be null!");
        return false;
    }
    bool answer = rx != nullptr && rxlen != 0;
    unsigned int len = txlen;
    if (answer) {
        len = txlen + rxlen;
        if (len < txlen) {  // wrapped: no buffer could hold the message
            ORVANE_ERROR("message too long: %u + %u bytes", txlen, rxlen);
            return false;
        }
    }
    unsigned char stackBuffer[kStackMessage];
    std::unique_ptr<unsigned char[]> heapBuffer;
    unsigned char* rxBuffer = nullptr;
    if (answer) {
        if (len <= kStackMessage) {
            rxBuffer = stackBuffer;
        } else {
            heapBuffer.reset(new unsigned char[len]);
            rxBuffer = heapBuffer.get();
        }
        memset(rxBuffer, 0, len);
    }
    spi_ioc_transfer record =
        detail::spiTransferRecord(tx, rxBuffer, len, mode_, speed_, delay_, bits_);
    if (ioctl(fd_.get(), SPI_IOC_MESSAGE(1), &record) < 1) {
        int err = errno;
        ORVANE_ERROR("SPI_IOC_MESSAGE error: %s", strerror(err));
        return false;
    }
    // What came in while tx was clocked out is dropped.
    if (answer) memcpy(rx, rxBuffer + txlen, rxlen);
    return true;
}

// Every descriptor open() obtained is released, 0 included, and fd goes back
// to -1, so a second close() touches nothing.
void SpiDev::close() { fd_.reset(); }

}  // namespace orvane
