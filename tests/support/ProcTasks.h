#pragma once

#include <string>
#include <vector>

namespace orvane {
namespace test {

// The kernel's name of one thread of this process (/proc/self/task/<tid>/comm,
// at most 15 characters), or "" when there is no such thread.
std::string threadName(int taskId);
// The kernel names of all threads of this process.
std::vector<std::string> threadNames();
// The number of threads of this process.
size_t threadCount();

}  // namespace test
}  // namespace orvane
