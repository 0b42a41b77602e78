#pragma once

#include <sys/syscall.h>
#include <unistd.h>

namespace orvane {
namespace detail {

// The kernel task id of the calling thread (what ps -L and /proc/<pid>/task
// show). System::getTaskId is the public form.
inline int currentTaskId() { return static_cast<int>(::syscall(SYS_gettid)); }

}  // namespace detail
}  // namespace orvane
