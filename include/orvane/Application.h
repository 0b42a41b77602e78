#pragma once

#include <orvane/AsyncTaskQueue.h>
#include <orvane/Export.h>
#include <orvane/Thread.h>
#include <orvane/Time.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace orvane {

class Application;

// A named part of an application with lifecycle hooks. The base hooks do
// nothing and succeed. onInit runs when the component is added, onStart and
// onStop at startup and quit, onDeinit only on removal.
class ORVANE_API Component {
  public:
    Component();
    virtual ~Component();
    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;

    // Called once when the component is added to an application; false refuses the component. Runs
    // on the thread that calls addComponent.
    virtual bool onInit();
    // Called by Application::startup in the order the components were added; false stops the
    // start-up (the earlier components are stopped again).
    virtual bool onStart();
    // Called by Application::quit and removeComponent; false is logged by the caller.
    virtual bool onStop();
    // Called by removeComponent after onStop; false keeps the component registered.
    virtual bool onDeinit();
    // Hands a named task to the owning application's task queue; false when not added.
    virtual bool addTask(const std::function<void(const std::string&)>& task,
                         const std::string& name);
    // True while the component is started (between a successful onStart and onStop).
    virtual bool isOk();

    // The name the component was registered under ("Component" before addComponent). Any thread.
    const std::string& getName() const { return name_; }
    // The application the component was added to; null before. Any thread.
    Application* getOwner() const { return owner_; }

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    friend class Application;
    // Trailing underscores keep a derived component's own `name` or `running`
    // from shadowing these under -Wshadow.
    std::string name_;
    Application* owner_;
    std::atomic<bool> running_;
};

// The one application object of a device program. It owns its components in
// the order they were added, the task queue "Application" and the thread
// "Application", which polls delivered signals every 100 ms and runs their
// callbacks, so a signal callback may wait up to 100 ms.
// Components start and stop in the order they were added (not reversed);
// quit() does not de-initialise them. Only the first delivery of a signal is
// caught: a second one takes the signal's default action. A signal callback
// may call quit(). The destructor runs no hook, but stops the application
// thread if quit() did not.
class ORVANE_API Application : public Component, public Runnable {
  public:
    Application();
    ~Application() override;

    // Registers the process's application object; a second registration is logged and ignored (the
    // first one stays).
    static void registerInstance(Application* app);
    // The registered application, or null. Any thread.
    static Application* getInstance();

    // Registers `component` under `name` and runs its onInit; false (list unchanged) for a null
    // component, a name already taken or onInit failing.
    bool addComponent(const std::string& name, std::shared_ptr<Component> component);
    // The zero-based position of the component registered under `name`, or -1.
    int findComponent(const std::string& name);
    // Stops, de-initialises and unregisters the component; true for an unknown name, false when its
    // onDeinit fails.
    bool removeComponent(const std::string& name);
    // Creates the task queue "Application" with `workers` threads, starts the components in order
    // and then the application thread. False when the queue or a component fails to start (the
    // started ones are stopped again). Once, from the main thread.
    bool startup(int workers, const SchedParam& param);
    // startup(1, SchedParam()): one worker with the default scheduling, for
    // a program that queues few or no tasks.
    bool startup();
    // Stops every component (in the order they were added), stops the application thread (waiting
    // at most 10 s) and flushes the Tracer. Main thread or a signal callback.
    void quit();
    // Blocks the calling thread (main) until quit() has run, and returns 0
    // as soon as it has: a signal callback that calls quit() ends the wait
    // at once, with no polling. Returns 0 at once when quit() ran already,
    // and -1, with a log line, when startup() has not succeeded. Any thread
    // but the application thread, whose callbacks would then never run.
    //
    //     app.registerSignal(SIGTERM, [&app] { app.quit(); });
    //     if (!app.startup()) return 1;
    //     return app.exec();
    int exec();
    // Runs `callback` on the application thread after `signo` is delivered; several callbacks per
    // signal run in the order registered. False when the handler cannot be installed (SIGKILL,
    // SIGSTOP, a number out of range); true without the callback once a spent handler cannot be
    // installed again.
    bool registerSignal(int signo, std::function<void()> callback);
    bool addTask(const std::function<void(const std::string&)>& task,
                 const std::string& name) override;
    // Tasks waiting or running in the task queue; valid only after startup().
    int tasks();

    // The application thread's body: every 100 ms, runs the callbacks of the signals delivered
    // since the last pass.
    void run(const Thread& thread) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // The component at index, or null past the end; each call takes the list lock once.
    std::shared_ptr<Component> componentAt(size_t index, std::string* name = nullptr);
    // Sets the state exec() waits on and wakes the waiters.
    void changeState(int value);

    Thread thread;
    Rate warningRate;
    std::mutex warningMutex;  // addTask may come from any thread
    std::vector<std::pair<std::string, std::shared_ptr<Component>>> components;
    std::mutex listMutex;
    std::mutex operationMutex;
    std::shared_ptr<AsyncTaskQueue> taskQueue;
    // What exec() waits for: 0 never started, 1 started, 2 quit.
    std::mutex stateMutex;
    std::condition_variable stateChanged;
    int state = 0;
};

}  // namespace orvane
