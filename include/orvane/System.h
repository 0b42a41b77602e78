#pragma once

#include <orvane/Export.h>

#include <string>

namespace orvane {

// Process and thread facts from the kernel, and running shell commands.
// All static, no state; any thread may call.
class ORVANE_API System {
  public:
    // The kernel task id of the calling thread; stores the low 32 bits of
    // pthread_self() in *pthreadId when given.
    static int getTaskId(unsigned int* pthreadId = nullptr);
    // Runs command through "/bin/sh -c" and waits for it to end; true when
    // it exits with status 0. Logs nothing: the caller reports the failure.
    // A process that ignores SIGCHLD cannot wait for the child and gets false.
    static bool execute(const std::string& command);
};

}  // namespace orvane
