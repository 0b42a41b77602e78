#pragma once

#include <orvane/Export.h>

#include <map>
#include <string>

namespace orvane {

// Kinds of plug-in that Pluglet::open accepts.
enum PlugletType : int {
    PLUGLET_SHARED_LIB = 0,  // a shared library, loaded with dlopen
};

// One plug-in: a shared library loaded by path, and a table of the symbols
// the caller asked for with putSymbol. getSymbol reads only that table, so a
// symbol the caller never put is not found even when the library has it.
// Failures are reported by results; only a failed dlopen is logged.
// close() keeps the table, whose addresses dangle until the table is
// refilled or the Pluglet is destroyed; open() on an open Pluglet does not
// close the earlier library (call close() first). Not thread-safe: one
// thread at a time uses an object.
class ORVANE_API Pluglet {
  public:
    Pluglet();
    ~Pluglet();
    Pluglet(const Pluglet&) = delete;
    Pluglet& operator=(const Pluglet&) = delete;

    // false without a log line for an empty path, a type other than
    // PLUGLET_SHARED_LIB or a path that is not an existing file.
    bool open(std::string path, PlugletType type);
    // Resolves name in the library into the table; an entry already there
    // keeps its address. false when not open or the library lacks the name.
    bool putSymbol(std::string name);
    // The table's address for name, or null when it was never put.
    void* getSymbol(std::string name) const;
    // True while a plug-in is loaded.
    bool isOpen() const { return handle != nullptr; }
    // Unloads the plug-in (dlclose); nothing when none is loaded.
    void close();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    void* handle;
    std::map<std::string, void*> symbols;
};

}  // namespace orvane
