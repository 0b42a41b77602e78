#include <gtest/gtest.h>
#include <orvane/FSMachine.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace orvane {
namespace {

// Records every state it hears, in one journal shared by several listeners.
class Recorder : public FSListener {
  public:
    Recorder(std::vector<std::string>* into, std::string name) : journal(into), tag(name) {}
    void onStateChanged(int state) override {
        journal->push_back(tag + ":" + std::to_string(state));
    }

  private:
    std::vector<std::string>* journal;
    std::string tag;
};

TEST(FSMachine, DoesNothingWithoutAHandlerForTheCurrentState) {
    FSMachine machine;
    std::vector<std::string> journal;
    ASSERT_TRUE(machine.addListener(std::make_shared<Recorder>(&journal, "a")));
    EXPECT_EQ(machine.getState(), -1);
    EXPECT_FALSE(machine.processState()) << "no states at all";

    int calls = 0;
    ASSERT_TRUE(machine.addState(0, [&] { return ++calls, 1; }));
    EXPECT_FALSE(machine.processState()) << "state -1 has no handler";
    EXPECT_EQ(machine.getState(), -1);

    EXPECT_FALSE(machine.initState(-5));
    EXPECT_EQ(machine.getState(), -1);
    EXPECT_TRUE(machine.initState(0));
    EXPECT_EQ(calls, 0) << "initState runs no handler";
    EXPECT_TRUE(journal.empty()) << "and notifies nobody";

    EXPECT_TRUE(machine.processState());
    EXPECT_EQ(machine.getState(), 1);
    EXPECT_EQ(calls, 1);
    // State 1 has no handler: the machine stays there, silently.
    EXPECT_FALSE(machine.processState());
    EXPECT_EQ(machine.getState(), 1);
    EXPECT_EQ(journal, (std::vector<std::string>{"a:1"}));

    EXPECT_TRUE(machine.initState(0));
    EXPECT_FALSE(machine.initState(-5));
    EXPECT_EQ(machine.getState(), 0) << "a refused initState keeps the state";
}

TEST(FSMachine, RefusesNegativeAndDuplicateStates) {
    FSMachine machine;
    EXPECT_FALSE(machine.addState(-1, [] { return 0; }));
    EXPECT_EQ(test::LogCapture::get().waitLine("state cannot be negative,state(-1)!"),
              "<E>DATE [FSMachine::addState,L#] state cannot be negative,state(-1)!");

    ASSERT_TRUE(machine.addState(2, [] { return 3; }));
    EXPECT_FALSE(machine.addState(2, [] { return 4; })) << "the first handler stays";
    ASSERT_TRUE(machine.initState(2));
    EXPECT_TRUE(machine.processState());
    EXPECT_EQ(machine.getState(), 3);
}

TEST(FSMachine, NotifiesEveryListenerOnceOnEveryStep) {
    FSMachine machine;
    std::vector<std::string> journal;
    auto first = std::make_shared<Recorder>(&journal, "x");
    auto second = std::make_shared<Recorder>(&journal, "y");
    EXPECT_TRUE(machine.addListener(first));
    EXPECT_TRUE(machine.addListener(second));
    EXPECT_FALSE(machine.addListener(first)) << "kept once";
    EXPECT_FALSE(machine.addListener(nullptr));

    int steps = 0;
    machine.addState(5, [&] { return ++steps < 3 ? 5 : -2; });
    machine.initState(5);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(machine.processState());
    // A handler may leave the machine in a negative state; nothing runs after.
    EXPECT_EQ(machine.getState(), -2);
    EXPECT_FALSE(machine.processState());

    // Listeners are told in the order of their addresses, also when the state stays.
    std::string low = first.get() < second.get() ? "x" : "y";
    std::string high = low == "x" ? "y" : "x";
    EXPECT_EQ(journal, (std::vector<std::string>{low + ":5", high + ":5", low + ":5", high + ":5",
                                                 low + ":-2", high + ":-2"}));
}

TEST(FSMachine, AnEmptyHandlerThrowsAndChangesNothing) {
    FSMachine machine;
    std::vector<std::string> journal;
    machine.addListener(std::make_shared<Recorder>(&journal, "a"));
    ASSERT_TRUE(machine.addState(1, std::function<int()>()));
    machine.initState(1);
    EXPECT_THROW(machine.processState(), std::bad_function_call);
    EXPECT_EQ(machine.getState(), 1);
    EXPECT_TRUE(journal.empty());
}

}  // namespace
}  // namespace orvane
