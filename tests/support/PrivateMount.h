#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdio>

#include "support/ChildProcess.h"

namespace orvane::test {

// Covers dir with an empty tmpfs in a mount namespace of this process's own,
// so files the library reads at fixed paths seem to be missing. Nothing
// outside the process sees it. Call it in a child process before it starts
// threads (a new user namespace needs a single-threaded caller).
// `mountFlags` and `options` ("size=1m") are those of the tmpfs.
inline bool hideDirectory(const char* dir, unsigned long mountFlags = 0,
                          const char* options = nullptr) {
    // A propagation change ignores source and type; named anyway, as checkers
    // such as memcheck take a null type for a bad pointer.
    return unshare(CLONE_NEWNS | (getuid() == 0 ? 0 : CLONE_NEWUSER)) == 0 &&
           mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", dir, "tmpfs", mountFlags, options) == 0;
}

// Whether hideDirectory works on this machine, tried in a throw-away child.
inline bool canHideDirectory(const char* dir) {
    return succeedsInChild([dir] { return hideDirectory(dir); });
}

// Makes the calling process the unprivileged user "nobody" (65534) for good,
// to see what a device program without root is refused. Call it in a child.
inline bool dropPrivileges() {
    return setgroups(0, nullptr) == 0 && setresgid(65534, 65534, 65534) == 0 &&
           setresuid(65534, 65534, 65534) == 0;
}

// Ends a death-test child: gtest keeps the child's failures to itself, so
// they are written to stderr (which the parent shows) and set the exit code.
[[noreturn]] inline void exitWithChecks() {
    const auto* result = ::testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result->total_part_count(); ++i) {
        fprintf(stderr, "%s\n", result->GetTestPartResult(i).message());
    }
    _exit(result->Failed() ? 1 : 0);
}

}  // namespace orvane::test
