#include <orvane/PinCtrl.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "io/TempDirFixture.h"

namespace orvane {
namespace {

// A fake "/sys/class/gpio" of regular files in a temporary directory.
class PinCtrlTest : public test::TempDirTest {
  protected:
    void SetUp() override {
        TempDirTest::SetUp();
        put("export", "");
        put("unexport", "");
    }
    // The directory the kernel creates for an exported pin. It appears with
    // its attribute files in it, as in sysfs, so it is filled aside first.
    void addPin(int pin) {
        std::string name = "gpio" + std::to_string(pin);
        mkdir((dir + "/new").c_str(), 0700);
        put("new/direction", "in\n");
        put("new/value", "0\n");
        put("new/active_low", "0\n");
        put("new/edge", "none\n");
        rename((dir + "/new").c_str(), (dir + "/" + name).c_str());
    }
};

// poll() on a regular file never reports POLLPRI, so here an edge wait can
// only time out; on the kernel's value file the same call returns at the edge.
TEST_F(PinCtrlTest, DrivesAnExportedPinThroughItsAttributeFilesAndRefusesBadInput) {
    addPin(17);
    PinCtrl pin(dir);
    test::expectRefusal([&] { return pin.open(17, 5); },
                        "<E>DATE [PinCtrl::open,L#] bad pin:17 or direction:5 (0 in, 1 out)");
    ASSERT_TRUE(pin.open(17, PIN_OUT));
    EXPECT_EQ(slurp(dir + "/gpio17/direction"), "low");  // an output that starts inactive
    EXPECT_EQ(pin.getDirection(), PIN_OUT);
    EXPECT_TRUE(pin.setValue(1) && pin.setActiveLow(true) && pin.setEdge(PIN_EDGE_BOTH));
    EXPECT_EQ(slurp(dir + "/gpio17/value").substr(0, 1) + slurp(dir + "/gpio17/active_low") +
                  slurp(dir + "/gpio17/edge"),
              "11both");
    EXPECT_EQ(pin.getValue() * 100 + pin.getActiveLow() * 10 + pin.getEdge(), 110 + PIN_EDGE_BOTH);
    EXPECT_EQ(pin.setEdge(PIN_EDGE_NONE) ? pin.waitEdge(0) : 0, -1);  // no edge set
    EXPECT_TRUE(pin.setDirection(PIN_IN) && pin.setEdge(PIN_EDGE_FALLING) &&
                pin.getDirection() == PIN_IN);
    int value = 7;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pin.waitEdge(20000, &value), -2);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
    EXPECT_EQ(value, 7);  // untouched without an edge
    put("gpio17/value", "x\n");
    put("gpio17/edge", "sideways\n");
    EXPECT_EQ(pin.getValue() + pin.getEdge(), -2);  // both unreadable
    EXPECT_TRUE(pin.close() && !pin.isOpen());
    // Exported before: neither exported nor unexported by the object.
    EXPECT_EQ(slurp(dir + "/export") + slurp(dir + "/unexport"), "");
}

// The "kernel" here is a thread that makes the pin's directory once "5" is
// written to export; the pin exported by open() is unexported by close().
TEST_F(PinCtrlTest, ExportsAPinForItsLifetime) {
    // Counted before the "kernel" starts: it opens the export file as it polls.
    const std::vector<int> fds = test::openFds();
    std::atomic<bool> quit{false};
    std::thread kernel([&] {
        while (!quit && slurp(dir + "/export") != "5")
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (!quit) addPin(5);
    });
    {
        PinCtrl pin(dir);
        EXPECT_TRUE(pin.open(5, PIN_IN));
        quit = true;
        kernel.join();
        EXPECT_EQ(test::fdsOpenedSince(fds).size(), 1u);  // the value file
    }
    EXPECT_EQ(slurp(dir + "/unexport"), "5");
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
    EXPECT_FALSE(PinCtrl(dir + "/missing").open(9, PIN_OUT));
}

// Without lines every call is refused; with the first chip (when the machine
// has one) only refusals, as a test does not drive the lines of a real board.
TEST(PinChip, RefusesCallsWithoutAChipOrLinesAndBadRequests) {
    PinChip chip;
    PinEvent event;
    test::expectRefusal([&] { return chip.open(-1); },
                        "<E>DATE [PinChip::open,L#] bad chip number:-1");
    EXPECT_EQ(chip.waitEvent(&event, 0), -1);  // not open
    if (access("/dev/gpiochip0", F_OK) != 0) GTEST_SKIP() << "no GPIO chip: /dev/gpiochip0";
    ASSERT_TRUE(chip.open(0));
    auto beyond = static_cast<unsigned int>(chip.lineCount());
    EXPECT_FALSE(beyond == 0 || chip.requestLines({beyond}, PIN_IN) ||
                 chip.requestLines({0, 0}, PIN_IN) ||
                 chip.requestLines({0}, PIN_OUT, PIN_EDGE_BOTH));
}

}  // namespace
}  // namespace orvane
