#include <orvane/System.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "thread/TaskId.h"

extern char** environ;

namespace orvane {

int System::getTaskId(unsigned int* pthreadId) {
    if (pthreadId != nullptr) {
        *pthreadId = static_cast<unsigned int>(pthread_self());
    }
    return detail::currentTaskId();
}

bool System::execute(const std::string& command) {
    // posix_spawn instead of system(): it does not touch the caller's signal
    // dispositions, so other threads keep their SIGINT and SIGCHLD handling.
    const char* argv[] = {"sh", "-c", command.c_str(), nullptr};
    pid_t child = -1;
    if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(argv), environ) !=
        0) {
        return false;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace orvane
