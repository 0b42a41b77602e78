#pragma once

#include <orvane/Export.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace orvane {

// Told every state an FSMachine enters, on the thread that drives the machine.
class ORVANE_API FSListener {
  public:
    FSListener();
    // Called after each step with the state just entered, also when it did not change.
    virtual void onStateChanged(int state) = 0;
    virtual ~FSListener();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
};

// A table-driven state machine: each non-negative state has a handler whose
// result becomes the next state, and every listener hears of it. The
// application drives it by calling processState() from its own loop.
// Refusals are return values; only a negative state given to addState() is
// logged. A handler may return any value, also a state without a handler
// (the machine then stays there) or a negative one. An empty handler makes
// processState() throw std::bad_function_call. Add states and listeners
// before driving the machine; processState() belongs to one thread, while
// getState() may be read from any.
class ORVANE_API FSMachine {
  public:
    FSMachine();
    virtual ~FSMachine();
    FSMachine(const FSMachine&) = delete;
    FSMachine& operator=(const FSMachine&) = delete;

    // Sets the current state without running a handler; false for a negative one.
    bool initState(int state);
    // -1 until initState().
    int getState() const { return state.load(); }
    // False for a negative state (logged) or one that already has a handler
    // (the first handler stays).
    bool addState(int state, std::function<int()> handler);
    // False for an empty pointer or a listener already added.
    bool addListener(std::shared_ptr<FSListener> listener);
    // One step: runs the current state's handler, stores its result and
    // notifies the listeners in the order of their addresses. False, doing
    // nothing, when the current state has no handler.
    bool processState();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    std::atomic<int> state;
    std::map<int, std::function<int()>> handlers;
    std::set<std::shared_ptr<FSListener>> listeners;
};

}  // namespace orvane
