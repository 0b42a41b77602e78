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

std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return names;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        names.push_back(threadName(atoi(entry->d_name)));
    }
    closedir(dir);
    return names;
}

}  // namespace test
}  // namespace orvane
