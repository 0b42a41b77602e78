#include <gtest/gtest.h>
#include <orvane/PinCtrl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "io/TempDirFixture.h"
#include "support/Eventually.h"

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
    // Every call must fail (false or -1) and log exactly `line`.
    void expectOneLineEach(
        const std::vector<std::pair<std::function<bool()>, std::string>>& cases) {
        for (auto& c : cases) {
            auto lines = test::LogCapture::get().linesDuring([&] { EXPECT_FALSE(c.first()); });
            EXPECT_EQ(lines, std::vector<std::string>{"<E>DATE " + c.second});
        }
    }
};

TEST_F(PinCtrlTest, DrivesAnExportedPinThroughItsAttributeFiles) {
    addPin(17);
    PinCtrl pin(dir);
    ASSERT_TRUE(pin.open(17, PIN_OUT));
    EXPECT_EQ(pin.pin(), 17);
    EXPECT_EQ(attr(17, "direction"), "low");  // an output that starts inactive
    EXPECT_EQ(pin.getDirection(), PIN_OUT);
    EXPECT_TRUE(pin.setValue(1));
    EXPECT_EQ(attr(17, "value").substr(0, 1), "1");
    EXPECT_EQ(pin.getValue(), 1);
    EXPECT_TRUE(pin.setActiveLow(true));
    EXPECT_EQ(attr(17, "active_low"), "1");
    EXPECT_EQ(pin.getActiveLow(), 1);
    const char* const edges[] = {"none", "rising", "falling", "both"};
    for (int edge = PIN_EDGE_NONE; edge <= PIN_EDGE_BOTH; ++edge) {
        EXPECT_TRUE(pin.setEdge(edge));
        EXPECT_EQ(attr(17, "edge"), edges[edge]);
        EXPECT_EQ(pin.getEdge(), edge);
    }
    EXPECT_TRUE(pin.setDirection(PIN_IN));
    EXPECT_EQ(pin.getDirection(), PIN_IN);
    EXPECT_TRUE(pin.close());
    EXPECT_FALSE(pin.isOpen());
    // Exported before: neither exported nor unexported by the object.
    EXPECT_EQ(slurp(dir + "/export"), "");
    EXPECT_EQ(slurp(dir + "/unexport"), "");
}

// The "kernel" here is a thread that makes the pin's directory once "5" is
// written to export; the pin exported by open() is unexported by close().
TEST_F(PinCtrlTest, ExportsAPinForItsLifetime) {
    // Counted before the "kernel" starts: it opens the export file as it polls.
    int fds = test::openFdCount();
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
        EXPECT_EQ(test::openFdCount(), fds + 1);  // the value file
    }
    EXPECT_EQ(slurp(dir + "/unexport"), "5");
    EXPECT_EQ(test::openFdCount(), fds);
}

// poll() on a regular file never reports POLLPRI, so here the wait can only
// time out; on the kernel's value file the same call returns at the edge.
TEST_F(PinCtrlTest, EdgeWaitTimesOutAndNeedsAnEdge) {
    addPin(17);
    PinCtrl pin(dir);
    ASSERT_TRUE(pin.open(17, PIN_IN));
    expectOneLineEach(
        {{[&] { return pin.waitEdge(0) != -1; }, "[PinCtrl::waitEdge,L#] gpio17 has no edge set"}});
    ASSERT_TRUE(pin.setEdge(PIN_EDGE_FALLING));
    int value = 7;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pin.waitEdge(20000, &value), -2);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
    EXPECT_EQ(value, 7);  // untouched without an edge
    put("gpio17/value", "x\n");
    expectOneLineEach({{[&] { return pin.waitEdge(0) != -1; },
                        "[PinCtrl::waitEdge,L#] gpio17 value unreadable"}});
}

TEST_F(PinCtrlTest, RejectsBadInputWithOneLineEach) {
    addPin(17);
    PinCtrl closed(dir);
    PinCtrl pin(dir);
    PinCtrl noExport(dir + "/missing");
    expectOneLineEach({
        {[&] { return closed.getValue() != -1; }, "[PinCtrl::getValue,L#] pin not open"},
        {[&] { return closed.setValue(1); }, "[PinCtrl::setValue,L#] pin not open"},
        {[&] { return closed.getDirection() != -1; }, "[PinCtrl::getDirection,L#] pin not open"},
        {[&] { return closed.setEdge(PIN_EDGE_BOTH); }, "[PinCtrl::setEdge,L#] pin not open"},
        {[&] { return closed.waitEdge(0) != -1; }, "[PinCtrl::waitEdge,L#] pin not open"},
        {[&] { return pin.open(-1, PIN_IN); },
         "[PinCtrl::open,L#] bad pin:-1 or direction:0 (0 in, 1 out)"},
        {[&] { return pin.open(17, 5); },
         "[PinCtrl::open,L#] bad pin:17 or direction:5 (0 in, 1 out)"},
        {[&] { return noExport.open(9, PIN_OUT); },
         "[PinCtrl::exportPin,L#] export gpio9 error:No such file or directory"},
        {[&] { return closed.unexportPin(-3); }, "[PinCtrl::unexportPin,L#] bad pin:-3"},
    });
    ASSERT_TRUE(pin.open(17, PIN_OUT));
    expectOneLineEach({
        {[&] { return pin.setValue(2); }, "[PinCtrl::setValue,L#] bad value:2 (0 or 1)"},
        {[&] { return pin.setEdge(4); },
         "[PinCtrl::setEdge,L#] bad edge:4 (0 none, 1 rising, 2 falling, 3 both)"},
        {[&] { return pin.setDirection(-1); },
         "[PinCtrl::setDirection,L#] bad direction:-1 (0 in, 1 out)"},
    });
    put("gpio17/edge", "sideways\n");
    expectOneLineEach(
        {{[&] { return pin.getEdge() != -1; }, "[PinCtrl::getEdge,L#] unknown edge:'sideways'"}});
}

TEST(PinChip, RefusesEveryCallWithoutAChipOrLines) {
    PinChip chip;
    PinEvent event;
    auto& capture = test::LogCapture::get();
    const std::pair<std::function<bool()>, std::string> cases[] = {
        {[&] { return chip.open(-1); }, "[PinChip::open,L#] bad chip number:-1"},
        {[&] { return chip.requestLines({1}, PIN_IN); },
         "[PinChip::requestLines,L#] chip not open"},
        {[&] { return chip.getValue(3) != -1; }, "[PinChip::getValue,L#] no lines requested"},
        {[&] { return chip.setValue(3, 1); }, "[PinChip::setValue,L#] no lines requested"},
        {[&] { return chip.setValue(3, 2); }, "[PinChip::setValue,L#] bad value:2 (0 or 1)"},
        {[&] { return chip.waitEvent(nullptr, 0) != -1; },
         "[PinChip::waitEvent,L#] param error: event is null"},
        {[&] { return chip.waitEvent(&event, 0) != -1; },
         "[PinChip::waitEvent,L#] no lines requested"},
    };
    for (auto& c : cases) {
        auto lines = capture.linesDuring([&] { EXPECT_FALSE(c.first()); });
        EXPECT_EQ(lines, std::vector<std::string>{"<E>DATE " + c.second});
    }
    EXPECT_TRUE(chip.close());
    EXPECT_EQ(chip.lineCount(), 0);
}

TEST(PinChip, OpensTheFirstChipAndChecksRequests) {
    if (access("/dev/gpiochip0", F_OK) != 0) {
        PinChip chip;
        auto lines = test::LogCapture::get().linesDuring([&] { EXPECT_FALSE(chip.open(0)); });
        EXPECT_EQ(lines, std::vector<std::string>{
                             "<E>DATE [PinChip::open,L#] open /dev/gpiochip0 error:No such file or "
                             "directory"});
        GTEST_SKIP() << "no GPIO chip: /dev/gpiochip0 is missing";
    }
    PinChip chip;
    ASSERT_TRUE(chip.open(0));
    EXPECT_GT(chip.lineCount(), 0);
    unsigned int beyond = static_cast<unsigned int>(chip.lineCount());
    // Only refusals: the lines of a real board are not driven by a test.
    EXPECT_FALSE(chip.requestLines({beyond}, PIN_IN));
    EXPECT_FALSE(chip.requestLines({0, 0}, PIN_IN));
    EXPECT_FALSE(chip.requestLines({0}, PIN_OUT, PIN_EDGE_BOTH));
    EXPECT_FALSE(chip.requestLines({}, PIN_IN));
}

}  // namespace
}  // namespace orvane
