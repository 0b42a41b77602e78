#include <orvane/FSMachine.h>

#include "support/LogCapture.h"

namespace orvane {
namespace {

using Lines = std::vector<std::string>;

// Appends every state it hears, after its tag, to a journal shared by listeners.
struct Recorder : FSListener {
    Recorder(Lines& into, const char* name) : journal(into), tag(name) {}
    void onStateChanged(int state) override { journal.push_back(tag + std::to_string(state)); }
    Lines& journal;
    std::string tag;
};

// Every refusal leaves the machine as it was, is told by its result and logs
// nothing, except a negative state for a handler.
TEST(FSMachine, RefusesBadInputThenNotifiesEveryListenerOfEveryStep) {
    FSMachine machine;
    Lines journal;
    auto x = std::make_shared<Recorder>(journal, "x"), y = std::make_shared<Recorder>(journal, "y");
    ASSERT_TRUE(machine.addListener(x) && machine.addListener(y));
    ASSERT_TRUE(machine.addState(5, [] { return -2; }));
    Lines logged = test::LogCapture::get().linesDuring([&] {
        EXPECT_FALSE(machine.processState());  // a state without handler
        EXPECT_FALSE(machine.initState(-5));
        EXPECT_FALSE(machine.addState(-1, nullptr));
        EXPECT_FALSE(machine.addState(5, [] { return 9; }));  // a second handler
        EXPECT_FALSE(machine.addListener(nullptr) || machine.addListener(x));
    });
    EXPECT_EQ(logged,
              Lines{"<E>DATE [FSMachine::addState,L#] state cannot be negative,state(-1)!"});
    EXPECT_EQ(machine.getState(), -1);
    ASSERT_TRUE(machine.initState(5));
    EXPECT_TRUE(machine.processState());
    EXPECT_EQ(machine.getState(), -2) << "a handler may lead to a negative state";
    // The first handler ran; each listener heard the step once, in address order.
    EXPECT_EQ(journal, (x < y ? Lines{"x-2", "y-2"} : Lines{"y-2", "x-2"}));
}

}  // namespace
}  // namespace orvane
