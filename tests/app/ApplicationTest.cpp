#include <gtest/gtest.h>
#include <orvane/Application.h>
#include <orvane/StrUtil.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/Eventually.h"
#include "support/LogCapture.h"
#include "support/ProcTasks.h"

namespace orvane {
namespace {

using test::eventually;

// The hooks a test component went through, shared by all components of a test.
struct Journal {
    std::mutex mutex;
    std::vector<std::string> events;
    void add(const std::string& event) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(event);
    }
    std::vector<std::string> get() {
        std::lock_guard<std::mutex> lock(mutex);
        return events;
    }
};

// A component whose hooks record themselves and answer as configured.
class Part : public Component {
  public:
    Part(Journal& sharedJournal, std::string partTag)
        : journal(sharedJournal), tag(std::move(partTag)) {}

    bool onInit() override { return note("init", initOk); }
    bool onStart() override { return note("start", startOk); }
    bool onStop() override { return note("stop", stopOk); }
    bool onDeinit() override { return note("deinit", deinitOk); }

    bool initOk = true, startOk = true, stopOk = true, deinitOk = true;

  private:
    bool note(const char* hook, bool result) {
        journal.add(std::string(hook) + " " + tag);
        return result;
    }
    Journal& journal;
    std::string tag;
};

std::shared_ptr<Part> makePart(Journal& journal, const std::string& tag) {
    return std::make_shared<Part>(journal, tag);
}

using Events = std::vector<std::string>;

TEST(Application, StartsComponentsInOrderAndRollsBackWhenTheThirdFails) {
    auto& capture = test::LogCapture::fresh();
    Journal journal;
    Application app;
    auto a = makePart(journal, "a"), b = makePart(journal, "b"), c = makePart(journal, "c");
    c->startOk = false;
    ASSERT_TRUE(app.addComponent("a", a));
    ASSERT_TRUE(app.addComponent("b", b));
    ASSERT_TRUE(app.addComponent("rollback-c", c));
    EXPECT_EQ(app.findComponent("b"), 1);
    EXPECT_EQ(c->getName(), "rollback-c");
    EXPECT_EQ(c->getOwner(), &app);

    EXPECT_FALSE(app.startup(1, SchedParam()));
    EXPECT_EQ(journal.get(), (Events{"init a", "init b", "init c", "start a", "start b", "start c",
                                     "stop a", "stop b"}));
    EXPECT_TRUE(a->isOk());
    EXPECT_TRUE(b->isOk());
    EXPECT_FALSE(c->isOk());
    EXPECT_FALSE(app.isOk());
    EXPECT_EQ(capture.waitLine("Component[rollback-c]"),
              "<E>DATE [Application::startup,L#] Component[rollback-c] start error!");
}

TEST(Application, StopsNothingWhenTheFirstComponentFailsToStart) {
    Journal journal;
    Application app;
    auto a = makePart(journal, "a"), b = makePart(journal, "b");
    a->startOk = false;
    app.addComponent("a", a);
    app.addComponent("b", b);
    EXPECT_FALSE(app.startup(1, SchedParam()));
    EXPECT_EQ(journal.get(), (Events{"init a", "init b", "start a"}));
    EXPECT_FALSE(a->isOk());
    EXPECT_FALSE(b->isOk());
}

TEST(Application, RefusesEmptyDuplicateAndFailingComponents) {
    Journal journal;
    Application app;
    auto first = makePart(journal, "first"), twin = makePart(journal, "twin");
    auto failing = makePart(journal, "failing");
    failing->initOk = false;
    EXPECT_TRUE(app.addComponent("same", first));
    EXPECT_FALSE(app.addComponent("same", twin));
    EXPECT_EQ(twin->getOwner(), &app);  // set before the name check
    EXPECT_EQ(twin->getName(), "Component");
    EXPECT_FALSE(app.addComponent("failing", failing));
    EXPECT_FALSE(app.addComponent("nothing", nullptr));
    EXPECT_EQ(journal.get(), (Events{"init first", "init failing"}));
    EXPECT_EQ(app.findComponent("same"), 0);
    EXPECT_EQ(app.findComponent("failing"), -1);
    EXPECT_EQ(app.findComponent("nothing"), -1);
    EXPECT_EQ(app.findComponent("Same"), -1);
    EXPECT_EQ(app.findComponent(""), -1);
}

TEST(Application, QuitsInStartOrderAndRemovesComponentsOneByOne) {
    auto& capture = test::LogCapture::fresh();
    Journal journal;
    Application app;
    auto a = makePart(journal, "a"), b = makePart(journal, "quit-b"), c = makePart(journal, "c");
    b->stopOk = false;
    app.addComponent("a", a);
    app.addComponent("quit-b", b);
    app.addComponent("c", c);
    ASSERT_TRUE(app.startup(2, SchedParam()));
    EXPECT_TRUE(app.isOk());
    EXPECT_TRUE(a->isOk() && b->isOk() && c->isOk());

    app.quit();
    EXPECT_EQ(journal.get(), (Events{"init a", "init quit-b", "init c", "start a", "start quit-b",
                                     "start c", "stop a", "stop quit-b", "stop c"}));
    EXPECT_EQ(capture.waitLine("Component[quit-b]"),
              "<E>DATE [Application::quit,L#] Component[quit-b] stop error!");
    EXPECT_FALSE(app.isOk() || a->isOk() || b->isOk() || c->isOk());
    EXPECT_EQ(app.findComponent("c"), 2);  // quit unregisters nothing

    // A stopped component is only de-initialised.
    EXPECT_TRUE(app.removeComponent("a"));
    EXPECT_EQ(app.findComponent("a"), -1);
    EXPECT_EQ(app.findComponent("c"), 1);
    EXPECT_TRUE(app.removeComponent("absent"));

    // Started again with the existing queue; a running component is stopped first.
    ASSERT_TRUE(app.startup(2, SchedParam()));
    c->deinitOk = false;
    EXPECT_FALSE(app.removeComponent("c"));
    EXPECT_FALSE(c->isOk());
    EXPECT_EQ(app.findComponent("c"), 1);
    app.quit();
    EXPECT_EQ(journal.get(),
              (Events{"init a", "init quit-b", "init c", "start a", "start quit-b", "start c",
                      "stop a", "stop quit-b", "stop c", "deinit a", "start quit-b", "start c",
                      "stop c", "deinit c", "stop quit-b", "stop c"}));
}

TEST(Application, RunsTasksOnlyAfterStartup) {
    auto& capture = test::LogCapture::fresh();
    Application app;
    auto part = std::make_shared<Component>();
    std::atomic<int> ran{0};
    auto task = [&](const std::string& name) {
        if (name == "counted") ++ran;
    };
    EXPECT_FALSE(part->addTask(task, "counted"));  // not added to an application
    ASSERT_TRUE(app.addComponent("part", part));
    EXPECT_FALSE(app.addTask(task, "counted"));
    EXPECT_EQ(capture.waitLine("cannot add task"),
              "<E>DATE [Application::addTask,L#] cannot add task before application startup!");
    EXPECT_FALSE(part->addTask(task, "counted"));

    ASSERT_TRUE(app.startup(2, SchedParam()));
    EXPECT_TRUE(app.addTask(task, "counted"));
    EXPECT_TRUE(part->addTask(task, "counted"));
    EXPECT_TRUE(eventually([&] { return ran == 2 && app.tasks() == 0; }));
    app.quit();
}

TEST(Application, KeepsTheFirstRegisteredInstance) {
    auto& capture = test::LogCapture::fresh();
    Application first, second;
    Application::registerInstance(&first);
    Application::registerInstance(&second);
    EXPECT_EQ(Application::getInstance(), &first);
    EXPECT_EQ(capture.waitLine("instance not null"),
              "<E>DATE [registerInstance,L#] @Application, instance not null!");
}

// Signal numbers are process-wide: each test below uses its own.

TEST(Application, RunsSignalCallbacksInOrderOnTheApplicationThread) {
    auto& capture = test::LogCapture::fresh();
    Application app;
    std::mutex mutex;
    std::vector<std::string> calls;
    auto callback = [&](const char* tag) {
        char name[17] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(std::string(tag) + "@" + name);
    };
    ASSERT_TRUE(app.registerSignal(SIGUSR1, [&] { callback("first"); }));
    ASSERT_TRUE(app.registerSignal(SIGUSR1, [&] { callback("second"); }));
    ASSERT_TRUE(app.startup(1, SchedParam()));
    ASSERT_EQ(kill(getpid(), SIGUSR1), 0);
    ASSERT_TRUE(eventually([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return calls.size() == 2;
    }));
    EXPECT_EQ(calls, (std::vector<std::string>{"first@Application", "second@Application"}));
    EXPECT_EQ(capture.waitLine(StrUtil::format("recv signal: %d", SIGUSR1)),
              StrUtil::format("<W>DATE [SignalHandler::checkSignal,L#] recv signal: %d", SIGUSR1));
    // The handler caught one delivery and put the default action back.
    struct sigaction now {};
    sigaction(SIGUSR1, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
    app.quit();
    EXPECT_EQ(capture.matching(StrUtil::format("recv signal: %d", SIGUSR1)).size(), 1u);
}

TEST(Application, RefusesSignalsThatCannotBeCaught) {
    Application app;
    EXPECT_FALSE(app.registerSignal(SIGKILL, [] {}));
    EXPECT_FALSE(app.registerSignal(0, [] {}));
    EXPECT_FALSE(app.registerSignal(-1, [] {}));
    EXPECT_FALSE(app.registerSignal(100000, [] {}));
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
            kill(getpid(), SIGUSR2);  // the default action: the process ends
            Thread::msleep(3000);
            exit(2);
        },
        ::testing::KilledBySignal(SIGUSR2), "");
}

}  // namespace
}  // namespace orvane
