#include <unistd.h>

#include <climits>
#include <cstdlib>

#include "kernel/SerialLink.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"

// SerialPort on a USB serial adapter: qemu's FTDI-compatible usb-serial
// device on an xHCI controller, driven by the kernel's ftdi_sio. The
// adapter's line is wired to the 8250 UART ttyS3.
namespace orvane {
namespace {

const char* const kAdapter = "/dev/ttyUSB0";
const char* const kUart = "/dev/ttyS3";

TEST(KernelUsbSerial, TakesASpeedAPlainUartCannotMakeAndCarriesDataBothWays) {
    SerialPort adapter, uart;
    ASSERT_TRUE(adapter.setAttribute(SerialPort::BAUD, 921600) == 0 && adapter.open(kAdapter, 2) &&
                uart.open(kUart, 2));
    SerialPort::LineSettings line;
    EXPECT_TRUE(adapter.getLine(&line) && line.baud == 921600);
    const std::string payload = test::everyByte();
    const int len = static_cast<int>(payload.size());
    EXPECT_EQ(adapter.sendData(payload.data(), len, 1000000), len);
    EXPECT_EQ(test::receive(uart, payload.size()), payload) << "to the UART";
    EXPECT_EQ(uart.sendData(payload.data(), len, 1000000), len);
    EXPECT_EQ(test::receive(adapter, payload.size()), payload) << "to the adapter";

    // ftdi_sio has no RS-485 mode and refuses the request; the port does not
    // check the driver's answer: both calls succeed without a log line and the
    // adapter still carries data.
    EXPECT_EQ(test::LogCapture::get().linesDuring([&] {
        EXPECT_EQ(adapter.setAttribute(SerialPort::DATAMODE, 2), 0);
        EXPECT_EQ(adapter.setAttribute(SerialPort::RS485DIR, 1), 0);
    }),
              std::vector<std::string>());
    EXPECT_EQ(adapter.sendData("485", 3, 1000000), 3);
    EXPECT_EQ(test::receive(uart, 3), "485");
}

TEST(KernelUsbSerial, ReportsTheAdapterPulledOutAndOpensItAgainWhenItIsBack) {
    char resolved[PATH_MAX];
    ASSERT_NE(realpath("/sys/class/tty/ttyUSB0/device/../../authorized", resolved), nullptr);
    // "0" in the adapter's "authorized" file disconnects it as if it were
    // pulled out, "1" enumerates it again.
    const std::string control = std::string(" > ") + resolved;
    SerialPort adapter;
    ASSERT_TRUE(adapter.open(kAdapter, 2));
    EXPECT_FALSE(adapter.isHungUp());

    ASSERT_EQ(std::system(("echo 0" + control).c_str()), 0);
    EXPECT_TRUE(test::eventually([&] { return adapter.isHungUp(); }));
    char buf[8];
    EXPECT_EQ(adapter.recvData(buf, sizeof buf, 1000000), 0);  // end of input, at once
    EXPECT_TRUE(adapter.close());

    ASSERT_EQ(std::system(("echo 1" + control).c_str()), 0);
    ASSERT_TRUE(test::eventually([] { return access(kAdapter, F_OK) == 0; }, 10000));
    ASSERT_TRUE(adapter.open(kAdapter, 2));
    SerialPort uart;
    ASSERT_TRUE(uart.open(kUart, 2));
    EXPECT_EQ(uart.sendData("back", 4, 1000000), 4);
    EXPECT_EQ(test::receive(adapter, 4), "back");
}

}  // namespace
}  // namespace orvane
