#include <gtest/gtest.h>
#include <orvane/PinCtrl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "io/TempDirFixture.h"
#include "support/Descriptors.h"
#include "support/Eventually.h"
#include "support/Refusal.h"

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
    // The directory the kernel creates for an exported pin.
    void addPin(int pin) {
        std::string name = "gpio" + std::to_string(pin);
        mkdir((dir + "/" + name).c_str(), 0700);
        put(name + "/direction", "in\n");
        put(name + "/value", "0\n");
        put(name + "/active_low", "0\n");
        put(name + "/edge", "none\n");
    }
    std::string attr(int pin, const std::string& name) {
        return slurp(dir + "/gpio" + std::to_string(pin) + "/" + name);
    }
    // Every call must fail (false, or -1 turned into false) and log exactly its line.
    static void expectRefusals(
        const std::vector<std::pair<std::function<bool()>, std::string>>& cases) {
        for (auto& [call, line] : cases) test::expectRefusal(call, "<E>DATE " + line);
    }
};

// poll() on a regular file never reports POLLPRI, so here an edge wait can
// only time out; on the kernel's value file the same call returns at the edge.
TEST_F(PinCtrlTest, DrivesAnExportedPinThroughItsAttributeFilesAndRefusesBadInput) {
    addPin(17);
    PinCtrl pin(dir);
    expectRefusals({
        {[&] { return pin.getValue() != -1; }, "[PinCtrl::getValue,L#] pin not open"},
        {[&] { return pin.open(17, 5); },
         "[PinCtrl::open,L#] bad pin:17 or direction:5 (0 in, 1 out)"},
    });
    ASSERT_TRUE(pin.open(17, PIN_OUT));
    EXPECT_EQ(attr(17, "direction"), "low");  // an output that starts inactive
    EXPECT_EQ(pin.getDirection(), PIN_OUT);
    EXPECT_TRUE(pin.setValue(1) && pin.setActiveLow(true) && pin.setEdge(PIN_EDGE_FALLING));
    EXPECT_EQ(attr(17, "value").substr(0, 1) + attr(17, "active_low") + attr(17, "edge"),
              "11falling");
    EXPECT_EQ(pin.getValue(), 1);
    EXPECT_EQ(pin.getActiveLow(), 1);
    for (int edge : {PIN_EDGE_BOTH, PIN_EDGE_RISING, PIN_EDGE_NONE}) {
        EXPECT_TRUE(pin.setEdge(edge));
        EXPECT_EQ(pin.getEdge(), edge);
    }
    expectRefusals({
        {[&] { return pin.setValue(2); }, "[PinCtrl::setValue,L#] bad value:2 (0 or 1)"},
        {[&] { return pin.setEdge(4); },
         "[PinCtrl::setEdge,L#] bad edge:4 (0 none, 1 rising, 2 falling, 3 both)"},
        {[&] { return pin.waitEdge(0) != -1; }, "[PinCtrl::waitEdge,L#] gpio17 has no edge set"},
    });
    EXPECT_TRUE(pin.setDirection(PIN_IN) && pin.setEdge(PIN_EDGE_FALLING));
    EXPECT_EQ(pin.getDirection(), PIN_IN);
    int value = 7;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pin.waitEdge(20000, &value), -2);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
    EXPECT_EQ(value, 7);  // untouched without an edge
    put("gpio17/value", "x\n");
    put("gpio17/edge", "sideways\n");
    expectRefusals({
        {[&] { return pin.getValue() != -1; }, "[PinCtrl::getValue,L#] gpio17 value unreadable"},
        {[&] { return pin.getEdge() != -1; }, "[PinCtrl::getEdge,L#] unknown edge:'sideways'"},
    });
    EXPECT_TRUE(pin.close());
    EXPECT_FALSE(pin.isOpen());
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
        EXPECT_EQ(pin.getDirection(), PIN_IN);
        EXPECT_EQ(test::fdsOpenedSince(fds).size(), 1u);  // the value file
    }
    EXPECT_EQ(slurp(dir + "/unexport"), "5");
    EXPECT_EQ(test::fdsOpenedSince(fds), std::vector<int>());
    test::expectRefusal(
        [&] { return PinCtrl(dir + "/missing").open(9, PIN_OUT); },
        "<E>DATE [PinCtrl::exportPin,L#] export gpio9 error:No such file or directory");
}

// Without lines every call is refused; with the first chip (when the machine
// has one) only refusals, as a test does not drive the lines of a real board.
TEST(PinChip, RefusesCallsWithoutAChipOrLinesAndBadRequests) {
    PinChip chip;
    PinEvent event;
    const std::pair<std::function<bool()>, std::string> cases[] = {
        {[&] { return chip.open(-1); }, "[PinChip::open,L#] bad chip number:-1"},
        {[&] { return chip.requestLines({1}, PIN_IN); },
         "[PinChip::requestLines,L#] chip not open"},
        {[&] { return chip.waitEvent(&event, 0) != -1; },
         "[PinChip::waitEvent,L#] no lines requested"},
    };
    for (auto& [call, line] : cases) test::expectRefusal(call, "<E>DATE " + line);
    if (access("/dev/gpiochip0", F_OK) != 0) {
        test::expectRefusal([&] { return chip.open(0); },
                            "<E>DATE [PinChip::open,L#] open /dev/gpiochip0 error:No such file or "
                            "directory");
        GTEST_SKIP() << "no GPIO chip: /dev/gpiochip0 is missing";
    }
    ASSERT_TRUE(chip.open(0));
    unsigned int beyond = static_cast<unsigned int>(chip.lineCount());
    EXPECT_GT(beyond, 0u);
    EXPECT_FALSE(chip.requestLines({beyond}, PIN_IN));
    EXPECT_FALSE(chip.requestLines({0, 0}, PIN_IN));
    EXPECT_FALSE(chip.requestLines({0}, PIN_OUT, PIN_EDGE_BOTH));
}

}  // namespace
}  // namespace orvane
