#include <dlfcn.h>
#include <orvane/File.h>
#include <orvane/Pluglet.h>

#include "log/LogLine.h"

namespace orvane {

Pluglet::Pluglet() : className("Pluglet"), handle(nullptr) {}

Pluglet::~Pluglet() { close(); }

bool Pluglet::open(std::string path, PlugletType type) {
    if (path.empty() || type != PLUGLET_SHARED_LIB || !File::exists(path)) return false;
    handle = dlopen(path.c_str(), RTLD_LAZY);
    if (handle == nullptr) {
        const char* why = dlerror();
        ORVANE_ERROR("open pluglet error:%s", why != nullptr ? why : "");
        return false;
    }
    return true;
}

bool Pluglet::putSymbol(std::string name) {
    if (handle == nullptr) return false;
    void* address = dlsym(handle, name.c_str());
    if (address == nullptr) return false;
    symbols.emplace(std::move(name), address);
    return true;
}

void* Pluglet::getSymbol(std::string name) const {
    auto found = symbols.find(name);
    return found != symbols.end() ? found->second : nullptr;
}

void Pluglet::close() {
    if (handle == nullptr) return;
    dlclose(handle);
    handle = nullptr;
}

}  // namespace orvane
