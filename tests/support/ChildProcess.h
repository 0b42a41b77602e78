#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace orvane::test {

// Runs `body` in a forked child, which leaves with _exit (no destructors, so
// objects copied from the parent release nothing), and tells whether the
// child exited normally with `body` true. The child must not wait for log
// lines: the Tracer's thread does not survive fork().
inline bool succeedsInChild(const std::function<bool()>& body) {
    pid_t child = ::fork();
    if (child == 0) ::_exit(body() ? 0 : 1);
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

}  // namespace orvane::test
