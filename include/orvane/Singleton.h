#pragma once

#include <orvane/Export.h>

namespace orvane {

// Base that gives T one process-wide instance, built on the first call of
// getInstance() (thread-safe) and destroyed at process exit in reverse order
// of construction. T makes its constructor reachable with
// `friend class Singleton<T>;`.
//
// getInstance() is defined out of line so that the library's own singletons
// (Tracer, SignalHandler, MsgQueueFactory) are instantiated once, inside
// liborvane.so, and a program shares that instance instead of making its own.
template <class T>
class ORVANE_API Singleton {
  public:
    // The one instance, constructed on first use (thread-safe, as a function-local static).
    static T& getInstance();

    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

  protected:
    Singleton() = default;
    ~Singleton() = default;
};

template <class T>
T& Singleton<T>::getInstance() {
    static T instance;
    return instance;
}

}  // namespace orvane
