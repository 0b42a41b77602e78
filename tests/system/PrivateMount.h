#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace orvane {
namespace test {

// Covers dir with an empty tmpfs in a mount namespace of this process's own,
// so files the library reads at fixed paths seem to be missing. Nothing
// outside the process sees it. Call it in a child process before it starts
// threads (a new user namespace needs a single-threaded caller).
inline bool hideDirectory(const char* dir) {
    int flags = CLONE_NEWNS | (getuid() == 0 ? 0 : CLONE_NEWUSER);
    if (unshare(flags) != 0) return false;
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
    return mount("none", dir, "tmpfs", 0, nullptr) == 0;
}

// Whether hideDirectory works on this machine, tried in a throw-away child.
inline bool canHideDirectory(const char* dir) {
    pid_t child = fork();
    if (child == 0) _exit(hideDirectory(dir) ? 0 : 1);
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

}  // namespace test
}  // namespace orvane
