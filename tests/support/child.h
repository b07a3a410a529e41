#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <sys/wait.h>
#include <unistd.h>

#include "support/test.h"

// Runs `act` in a child process. Returns what `act` returns, as its exit code, or minus the signal
// that ended the child.
template <class Act>
int exit_of_child(Act act) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(act());
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

#endif  // TESTS_SUPPORT_CHILD_H
