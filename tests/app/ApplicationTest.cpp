#include <gtest/gtest.h>
#include <orvane/Application.h>
#include <orvane/StrUtil.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/Eventually.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using test::eventually;
using Events = std::vector<std::string>;

// A component whose hooks note themselves in a journal shared by the
// components of a test, and answer as configured. Hooks run on the caller.
class Part : public Component {
  public:
    Part(Events& sharedJournal, std::string partTag)
        : journal(sharedJournal), tag(std::move(partTag)) {}

    bool onInit() override { return note("init"); }
    bool onStart() override { return note("start"); }
    bool onStop() override { return note("stop"); }
    bool onDeinit() override { return note("deinit"); }

    std::string failing;  // the hook that answers false

  private:
    bool note(const std::string& hook) {
        journal.push_back(hook + " " + tag);
        return hook != failing;
    }
    Events& journal;
    std::string tag;
};

// An application with components "a", "b" and "c" added in that order.
struct ThreeParts {
    Events journal;
    Application app;
    std::vector<std::shared_ptr<Part>> parts;
    ThreeParts() {
        for (const char* tag : {"a", "b", "c"}) {
            parts.push_back(std::make_shared<Part>(journal, tag));
            app.addComponent(std::string("part-") + tag, parts.back());
        }
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

TEST(Application, RefusesBadComponentsQuitsInStartOrderAndRemovesByDeinit) {
    auto& capture = test::LogCapture::fresh();
    ThreeParts three;
    auto refused = std::make_shared<Part>(three.journal, "d");
    refused->failing = "init";
    EXPECT_FALSE(three.app.addComponent("part-a", refused));  // the name is taken
    EXPECT_FALSE(three.app.addComponent("part-d", nullptr));
    EXPECT_FALSE(three.app.addComponent("part-d", refused));
    EXPECT_EQ(three.app.findComponent("part-d"), -1);
    three.parts[1]->failing = "stop";
    ASSERT_TRUE(three.app.startup(2, SchedParam()));
    EXPECT_TRUE(three.app.isOk() && three.parts[2]->isOk());
    three.app.quit();
    EXPECT_EQ(capture.waitLine("Component[part-b]"),
              "<E>DATE [Application::quit,L#] Component[part-b] stop error!");
    EXPECT_FALSE(three.app.isOk() || three.parts[0]->isOk() || three.parts[2]->isOk());
    EXPECT_TRUE(three.app.removeComponent("part-a"));
    EXPECT_EQ(three.journal, (Events{"init a", "init b", "init c", "init d", "start a", "start b",
                                     "start c", "stop a", "stop b", "stop c", "deinit a"}));
    EXPECT_EQ(three.app.findComponent("part-c"), 1);
}

TEST(Application, RunsTasksOnlyAfterStartup) {
    auto& capture = test::LogCapture::fresh();
    Application app;
    auto part = std::make_shared<Component>();
    std::atomic<int> ran{0};
    auto task = [&](const std::string& name) { ran += name == "counted"; };
    EXPECT_FALSE(part->addTask(task, "counted"));  // not added to an application
    ASSERT_TRUE(app.addComponent("part", part));
    EXPECT_FALSE(app.addTask(task, "counted"));
    EXPECT_EQ(capture.waitLine("cannot add task"),
              "<E>DATE [Application::addTask,L#] cannot add task before application startup!");
    ASSERT_TRUE(app.startup(2, SchedParam()));
    EXPECT_TRUE(app.addTask(task, "counted"));
    EXPECT_TRUE(part->addTask(task, "counted"));
    EXPECT_TRUE(eventually([&] { return ran == 2 && app.tasks() == 0; }));
    app.quit();
}

// Signal numbers are process-wide: each test below uses its own.

TEST(Application, RunsSignalCallbacksInOrderOnTheApplicationThread) {
    auto& capture = test::LogCapture::fresh();
    Application app;
    for (int bad : {SIGKILL, 0, -1, 100000}) EXPECT_FALSE(app.registerSignal(bad, [] {}));
    Events calls;  // written by the application thread only, read once `count` says so
    std::atomic<int> count{0};
    auto callback = [&](const char* tag) {
        char name[17] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        calls.push_back(std::string(tag) + "@" + name);
        ++count;
    };
    ASSERT_TRUE(app.registerSignal(SIGUSR1, [&] { callback("first"); }));
    ASSERT_TRUE(app.registerSignal(SIGUSR1, [&] { callback("second"); }));
    ASSERT_TRUE(app.startup(1, SchedParam()));
    ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
    ASSERT_TRUE(eventually([&] { return count == 2; }));
    EXPECT_EQ(calls, (Events{"first@Application", "second@Application"}));
    EXPECT_EQ(capture.waitLine(StrUtil::format("recv signal: %d", SIGUSR1)),
              StrUtil::format("<W>DATE [SignalHandler::checkSignal,L#] recv signal: %d", SIGUSR1));
    app.quit();
}

// exec() in main returns once a signal callback has quit the application.
TEST(Application, QuitsFromItsOwnSignalCallbackWithoutWaitingForItself) {
    auto& capture = test::LogCapture::fresh();
    Application app;
    auto component = std::make_shared<Component>();
    ASSERT_TRUE(app.addComponent("worker", component));
    std::atomic<bool> quitted{false};
    ASSERT_TRUE(app.registerSignal(SIGHUP, [&] {
        app.quit();  // on the application thread
        quitted = true;
    }));
    EXPECT_EQ(app.exec(), -1);  // nothing to wait for before startup
    EXPECT_EQ(capture.waitLine("not started"),
              "<E>DATE [Application::exec,L#] application not started!");
    ASSERT_TRUE(app.startup());
    ASSERT_EQ(kill(getpid(), SIGHUP), 0);
    EXPECT_EQ(app.exec(), 0);  // woken by quit() on the application thread
    // Well before stop()'s 10 s limit: the thread does not wait for itself.
    ASSERT_TRUE(eventually([&] { return quitted.load(); }, 3000));
    EXPECT_EQ(app.exec(), 0);  // quit already ran
    EXPECT_FALSE(component->isOk());
    EXPECT_FALSE(app.isOk());
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
            for (int i = 0; i < 3000 && calls == 0; ++i) Thread::msleep(1);
            if (calls != 1) exit(1);
            kill(getpid(), SIGUSR2);  // the default action again: the process ends
            Thread::msleep(3000);
            exit(2);
        },
        ::testing::KilledBySignal(SIGUSR2), "");
}

}  // namespace
}  // namespace orvane
