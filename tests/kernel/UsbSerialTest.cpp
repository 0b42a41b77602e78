#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>

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
    ASSERT_EQ(adapter.setAttribute(SerialPort::BAUD, 921600), 0);
    ASSERT_TRUE(adapter.open(kAdapter, 2));
    SerialPort::LineSettings line;
    ASSERT_TRUE(adapter.getLine(&line));
    EXPECT_EQ(line.baud, 921600);
    ASSERT_TRUE(uart.open(kUart, 2));
    const std::string payload = test::everyByte();
    const int len = static_cast<int>(payload.size());
    EXPECT_EQ(adapter.sendData(payload.data(), len, 1000000), len);
    EXPECT_EQ(test::receive(uart, payload.size()), payload) << "to the UART";
    EXPECT_EQ(uart.sendData(payload.data(), len, 1000000), len);
    EXPECT_EQ(test::receive(adapter, payload.size()), payload) << "to the adapter";

    // ftdi_sio has no RS-485 mode and refuses the request; the port does not
    // check the driver's answer: both calls succeed without a log line, the
    // values are kept and the adapter still carries data.
    int datamode = -1, direction = -1;
    std::vector<std::string> lines = test::LogCapture::get().linesDuring([&] {
        datamode = adapter.setAttribute(SerialPort::DATAMODE, 2);
        direction = adapter.setAttribute(SerialPort::RS485DIR, 1);
    });
    EXPECT_EQ(datamode + direction, 0);
    EXPECT_EQ(lines, std::vector<std::string>());
    EXPECT_EQ(adapter.getAttribute(SerialPort::DATAMODE), 2);
    EXPECT_EQ(adapter.sendData("485", 3, 1000000), 3);
    EXPECT_EQ(test::receive(uart, 3), "485");
}

// Writes "0" or "1" to the adapter's "authorized" file in sysfs: the kernel
// disconnects the device as if it were pulled out, or enumerates it again.
bool authorize(const std::string& file, bool on) {
    std::ofstream control(file);
    control << (on ? "1" : "0");
    control.close();
    return !control.fail();
}

TEST(KernelUsbSerial, ReportsTheAdapterPulledOutAndOpensItAgainWhenItIsBack) {
    char resolved[PATH_MAX];
    ASSERT_NE(realpath("/sys/class/tty/ttyUSB0/device/../../authorized", resolved), nullptr);
    const std::string control = resolved;
    SerialPort adapter;
    ASSERT_TRUE(adapter.open(kAdapter, 2));
    EXPECT_FALSE(adapter.isHungUp());

    ASSERT_TRUE(authorize(control, false));
    EXPECT_TRUE(test::eventually([&] { return adapter.isHungUp(); }));
    char buf[8];
    EXPECT_EQ(adapter.recvData(buf, sizeof buf, 1000000), 0);  // end of input, at once
    EXPECT_TRUE(adapter.close());

    ASSERT_TRUE(authorize(control, true));
    ASSERT_TRUE(test::eventually([] { return access(kAdapter, F_OK) == 0; }, 10000));
    ASSERT_TRUE(adapter.open(kAdapter, 2));
    SerialPort uart;
    ASSERT_TRUE(uart.open(kUart, 2));
    EXPECT_EQ(uart.sendData("back", 4, 1000000), 4);
    EXPECT_EQ(test::receive(adapter, 4), "back");
}

}  // namespace
}  // namespace orvane
