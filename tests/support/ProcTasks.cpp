#include "support/ProcTasks.h"

#include <dirent.h>

#include <cstdlib>
#include <fstream>

namespace orvane {
namespace test {

std::string threadName(int taskId) {
    std::ifstream comm("/proc/self/task/" + std::to_string(taskId) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

namespace {

// The task ids of this process's threads.
std::vector<int> taskIds() {
    std::vector<int> ids;
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return ids;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.')
            ids.push_back(static_cast<int>(strtol(entry->d_name, nullptr, 10)));
    }
    closedir(dir);
    return ids;
}

}  // namespace

std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    for (int id : taskIds()) names.push_back(threadName(id));
    return names;
}

size_t threadCount() { return taskIds().size(); }

}  // namespace test
}  // namespace orvane
