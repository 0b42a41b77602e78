#include <orvane/FSMachine.h>

#include <utility>

#include "log/LogLine.h"

namespace orvane {

FSListener::FSListener() : className("FSListener") {}

FSListener::~FSListener() = default;

FSMachine::FSMachine() : className("FSMachine"), state(-1) {}

FSMachine::~FSMachine() = default;

bool FSMachine::initState(int initial) {
    if (initial < 0) return false;
    state.store(initial);
    return true;
}

bool FSMachine::addState(int newState, std::function<int()> handler) {
    if (newState < 0) {
        ORVANE_ERROR("state cannot be negative,state(%d)!", newState);
        return false;
    }
    return handlers.emplace(newState, std::move(handler)).second;
}

bool FSMachine::addListener(std::shared_ptr<FSListener> listener) {
    if (!listener) return false;
    return listeners.insert(std::move(listener)).second;
}

bool FSMachine::processState() {
    auto found = handlers.find(state.load());
    if (found == handlers.end()) return false;
    int next = found->second();
    state.store(next);
    for (const auto& listener : listeners) listener->onStateChanged(next);
    return true;
}

}  // namespace orvane
