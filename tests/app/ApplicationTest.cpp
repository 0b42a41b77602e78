#include <orvane/Application.h>
#include <orvane/StrUtil.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "support/LogCapture.h"

namespace orvane {
namespace {

using Events = std::vector<std::string>;

// A component whose hooks note themselves in a journal shared by the
// components of a test, and answer false for the hook named in `failing`.
struct Part : Component {
    Part(Events& sharedJournal, std::string partTag, std::string failingHook = "")
        : journal(sharedJournal), tag(std::move(partTag)), failing(std::move(failingHook)) {}
    bool onInit() override { return note("init"); }
    bool onStart() override { return note("start"); }
    bool onStop() override { return note("stop"); }
    bool onDeinit() override { return note("deinit"); }
    bool note(const std::string& hook) {
        journal.push_back(hook + " " + tag);
        return hook != failing;
    }
    Events& journal;
    std::string tag, failing;
};

// An application with components "a", "b" and "c" added in that order.
struct ThreeParts {
    Events journal;
    Application app;
    std::vector<std::shared_ptr<Part>> parts;
    ThreeParts() {
        for (const char* tag : {"a", "b", "c"})
            app.addComponent(std::string("part-") + tag,
                             parts.emplace_back(std::make_shared<Part>(journal, tag)));
    }
};

TEST(Application, StartsComponentsInOrderAndStopsTheStartedOnesWhenOneFails) {
    auto& capture = test::LogCapture::fresh();
    const std::pair<size_t, Events> cases[] = {
        {2, {"init a", "init b", "init c", "start a", "start b", "start c", "stop a", "stop b"}},
        {0, {"init a", "init b", "init c", "start a"}},
    };
    for (auto& [failing, events] : cases) {
        ThreeParts three;
        three.parts[failing]->failing = "start";
        EXPECT_FALSE(three.app.startup(1, SchedParam()));
        EXPECT_EQ(three.journal, events);
        for (size_t i = 0; i < 3; ++i) EXPECT_EQ(three.parts[i]->isOk(), i < failing) << i;
        EXPECT_FALSE(three.app.isOk());
    }
    EXPECT_EQ(capture.waitLine("Component[part-c]"),
              "<E>DATE [Application::startup,L#] Component[part-c] start error!");
}

TEST(Application, RefusesBadComponentsAndEarlyTasksQuitsInStartOrderAndRemovesByDeinit) {
    auto& capture = test::LogCapture::fresh();
    ThreeParts three;
    auto refused = std::make_shared<Part>(three.journal, "d", "init");
    // A taken name, no component, a failing onInit.
    EXPECT_FALSE(three.app.addComponent("part-a", refused) ||
                 three.app.addComponent("part-d", nullptr) ||
                 three.app.addComponent("part-d", refused));
    EXPECT_EQ(three.app.findComponent("part-d"), -1);
    std::atomic<int> ran{0};
    auto task = [&](const std::string& name) { ran += name == "counted"; };
    EXPECT_FALSE(Component().addTask(task, "counted"));  // not added to an application
    test::expectRefusal(
        [&] { return three.app.addTask(task, "counted"); },
        "<E>DATE [Application::addTask,L#] cannot add task before application startup!");
    three.parts[1]->failing = "stop";
    ASSERT_TRUE(three.app.startup(2, SchedParam()));
    EXPECT_TRUE(three.app.isOk() && three.parts[2]->isOk());
    EXPECT_TRUE(three.app.addTask(task, "counted") && three.parts[0]->addTask(task, "counted"));
    EXPECT_TRUE(test::eventually([&] { return ran == 2 && three.app.tasks() == 0; }));
    three.app.quit();
    EXPECT_EQ(capture.waitLine("Component[part-b]"),
              "<E>DATE [Application::quit,L#] Component[part-b] stop error!");
    EXPECT_FALSE(three.app.isOk() || three.parts[0]->isOk() || three.parts[2]->isOk());
    EXPECT_TRUE(three.app.removeComponent("part-a"));
    EXPECT_EQ(three.journal, (Events{"init a", "init b", "init c", "init d", "start a", "start b",
                                     "start c", "stop a", "stop b", "stop c", "deinit a"}));
    EXPECT_EQ(three.app.findComponent("part-c"), 1);
}

// Signal numbers are process-wide: each test uses its own. The second
// callback quits the application from the application thread, well before
// stop()'s 10 s limit: the thread does not wait for itself; exec() in main
// returns once it has.
TEST(Application, RunsSignalCallbacksInOrderOnItsThreadWhichMayQuitFromThere) {
    auto& capture = test::LogCapture::fresh();
    Application app;
    for (int bad : {SIGKILL, 0, -1, 100000}) EXPECT_FALSE(app.registerSignal(bad, [] {}));
    auto component = std::make_shared<Component>();
    ASSERT_TRUE(app.addComponent("worker", component));
    Events calls;  // written by the application thread only, read once `count` says so
    std::atomic<int> count{0};
    auto callback = [&](const char* tag) {
        char name[17] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        calls.push_back(std::string(tag) + "@" + name);
        if (++count == 2) app.quit();  // from the application thread
    };
    ASSERT_TRUE(app.registerSignal(SIGUSR1, [&] { callback("first"); }));
    ASSERT_TRUE(app.registerSignal(SIGUSR1, [&] { callback("second"); }));
    EXPECT_EQ(app.exec(), -1);  // nothing to wait for before startup
    ASSERT_TRUE(app.startup());
    ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
    EXPECT_EQ(app.exec(), 0);  // main's wait, ended by quit() on the application thread
    ASSERT_TRUE(test::eventually([&] { return count == 2; }));
    EXPECT_EQ(calls, (Events{"first@Application", "second@Application"}));
    EXPECT_EQ(capture.waitLine(StrUtil::format("recv signal: %d", SIGUSR1)),
              StrUtil::format("<W>DATE [SignalHandler::checkSignal,L#] recv signal: %d", SIGUSR1));
    EXPECT_FALSE(component->isOk() || app.isOk());
    EXPECT_TRUE(capture.matching("force quit").empty());
}

TEST(ApplicationDeathTest, CatchesOnlyTheFirstDeliveryOfASignal) {
    EXPECT_EXIT(
        {
            Application app;
            std::atomic<int> calls{0};
            app.registerSignal(SIGUSR2, [&] { ++calls; });
            app.startup(1, SchedParam());
            kill(getpid(), SIGUSR2);
            if (!test::eventually([&] { return calls == 1; })) exit(1);
            kill(getpid(), SIGUSR2);  // the default action again: the process ends
            Thread::msleep(3000);
            exit(2);
        },
        ::testing::KilledBySignal(SIGUSR2), "");
}

}  // namespace
}  // namespace orvane
