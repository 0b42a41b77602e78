#include <orvane/Application.h>
#include <orvane/SignalHandler.h>
#include <orvane/Tracer.h>

#include "log/LogLine.h"

namespace orvane {

namespace {

// The registered application; set once by registerInstance.
std::atomic<Application*> registeredApp{nullptr};

}  // namespace

// ---- Component --------------------------------------------------------------

Component::Component()
    : className("Component"), name_("Component"), owner_(nullptr), running_(false) {}

Component::~Component() = default;

bool Component::onInit() { return true; }
bool Component::onStart() { return true; }
bool Component::onStop() { return true; }
bool Component::onDeinit() { return true; }

bool Component::addTask(const std::function<void(const std::string&)>& task,
                        const std::string& taskName) {
    if (owner_ == nullptr) return false;
    return owner_->addTask(task, taskName);
}

bool Component::isOk() { return running_.load(); }

// ---- Application ------------------------------------------------------------

Application::Application() : className("Application"), thread("Application"), warningRate(1) {}

Application::~Application() {
    // Not quit(): no hook runs. But the application thread must not outlive
    // the members its signal callbacks and tasks may use.
    thread.stop(-1);
    Application* self = this;
    registeredApp.compare_exchange_strong(self, nullptr);
}

void Application::registerInstance(Application* app) {
    Application* none = nullptr;
    if (!registeredApp.compare_exchange_strong(none, app)) {
        ORVANE_SERROR("@Application, instance not null!");
    }
}

Application* Application::getInstance() { return registeredApp.load(); }

std::shared_ptr<Component> Application::componentAt(size_t index, std::string* entryName) {
    std::lock_guard<std::mutex> lock(listMutex);
    if (index >= components.size()) return nullptr;
    if (entryName != nullptr) *entryName = components[index].first;
    return components[index].second;
}

bool Application::addComponent(const std::string& componentName,
                               std::shared_ptr<Component> component) {
    std::lock_guard<std::mutex> operation(operationMutex);
    if (!component) return false;
    component->owner_ = this;
    if (findComponent(componentName) >= 0) return false;
    if (!component->onInit()) return false;
    component->name_ = componentName;
    std::lock_guard<std::mutex> lock(listMutex);
    components.emplace_back(componentName, std::move(component));
    return true;
}

int Application::findComponent(const std::string& componentName) {
    std::string entryName;
    for (size_t i = 0; componentAt(i, &entryName); ++i) {
        if (entryName == componentName) return static_cast<int>(i);
    }
    return -1;
}

bool Application::removeComponent(const std::string& componentName) {
    std::lock_guard<std::mutex> operation(operationMutex);
    int index = findComponent(componentName);
    if (index < 0) return true;
    std::shared_ptr<Component> component = componentAt(static_cast<size_t>(index));
    if (!component) return true;
    if (component->running_) {
        component->onStop();
        component->running_ = false;
    }
    if (!component->onDeinit()) return false;
    std::lock_guard<std::mutex> lock(listMutex);
    for (auto it = components.begin(); it != components.end(); ++it) {
        if (it->second == component) {
            components.erase(it);
            break;
        }
    }
    return true;
}

bool Application::startup(int workers, const SchedParam& param) {
    if (!taskQueue) {
        taskQueue = std::make_shared<AsyncTaskQueue>("Application");
        if (!taskQueue->init(workers, param)) {
            ORVANE_ERROR("task queue init error!");
            return false;
        }
    }
    std::string failedName;
    size_t failed = 0;
    std::shared_ptr<Component> failedComponent;
    for (size_t i = 0;; ++i) {
        std::string entryName;
        std::shared_ptr<Component> component = componentAt(i, &entryName);
        if (!component) break;
        component->running_ = true;
        if (!component->onStart()) {
            failed = i;
            failedName = entryName;
            failedComponent = component;
            break;
        }
    }
    if (!failedComponent) {
        Component::running_ = true;
        if (!thread.start(*this)) return false;
        changeState(1);
        return true;
    }
    failedComponent->running_ = false;
    ORVANE_ERROR("Component[%s] start error!", failedName.c_str());
    // Roll back the components started before the failed one, in the order
    // they were started. Their running flags are left as they are.
    for (size_t j = 0; j < failed; ++j) {
        std::shared_ptr<Component> component = componentAt(j);
        if (component) component->onStop();
        failedComponent->running_ = false;
    }
    return false;
}

void Application::quit() {
    for (size_t i = 0;; ++i) {
        std::string entryName;
        std::shared_ptr<Component> component = componentAt(i, &entryName);
        if (!component) break;
        if (!component->onStop()) {
            ORVANE_ERROR("Component[%s] stop error!", entryName.c_str());
        }
        component->running_ = false;
    }
    Component::running_ = false;
    thread.stop(-1);
    Tracer::getInstance().flush();
    changeState(2);
}

bool Application::startup() { return startup(1, SchedParam()); }

void Application::changeState(int value) {
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        state = value;
    }
    stateChanged.notify_all();
}

int Application::exec() {
    std::unique_lock<std::mutex> lock(stateMutex);
    if (state == 0) {
        lock.unlock();
        ORVANE_ERROR("application not started!");
        return -1;
    }
    stateChanged.wait(lock, [this] { return state == 2; });
    return 0;
}

bool Application::registerSignal(int signo, std::function<void()> callback) {
    return SignalHandler::getInstance().registerSignal(signo, std::move(callback));
}

bool Application::addTask(const std::function<void(const std::string&)>& task,
                          const std::string& taskName) {
    if (!taskQueue) {
        ORVANE_ERROR("cannot add task before application startup!");
        return false;
    }
    bool warn = false;
    if (taskQueue->idles() == 0) {
        std::lock_guard<std::mutex> lock(warningMutex);
        warn = warningRate.wakeup(0);
    }
    if (warn) {
        ORVANE_WARN("no idle thread for task queue(%d)!", taskQueue->size());
    }
    taskQueue->putTask(task, taskName);
    return true;
}

int Application::tasks() { return taskQueue ? taskQueue->size() : 0; }

void Application::run(const Thread& runner) {
    SignalHandler& signals = SignalHandler::getInstance();
    while (runner.isRunning()) {
        signals.checkSignal();
        Thread::msleep(100);
    }
}

}  // namespace orvane
