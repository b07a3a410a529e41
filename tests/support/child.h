#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

// Child processes of tests.

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "support/test.h"

// Forks a child that does not outlive this process.
inline pid_t fork_child() {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
    return child;
}

// Starts a child, which ends with 1 after a failure of its own or of this process.
template <class Body>
pid_t started(Body body) {
    std::fflush(nullptr);
    const pid_t child = fork_child();
    if (child == 0) {
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

inline bool has_succeeded(pid_t child) {
    int status = 1;
    waitpid(child, &status, 0);
    return status == 0;
}

// Runs `body` in a child process and returns whether neither the child nor this process has met a
// failure.
template <class Body>
bool holds_in_child(Body body) {
    return has_succeeded(started([&] {
        alarm(120);
        body();
    }));
}

// Runs `act` in a child process. Returns what `act` returns, as its exit code, or minus the signal
// that ended the child.
template <class Act>
int exit_of_child(Act act) {
    const pid_t child = fork_child();
    if (child == 0) {
        _exit(act());
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

#endif  // TESTS_SUPPORT_CHILD_H
