#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

// Processes with a name of their own, for tests that look for them.

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>

#include "ostrel/platform/handle.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/sync.h"
#include "support/child.h"
#include "support/temp_dir.h"

// A copy of the host's sleep under a name, which runs until it is killed or the object ends.
class NamedProcess {
public:
    explicit NamedProcess(const std::string &name) {
        fs::copy_file("/bin/sleep", name, fs::copy_options::skip_existing);
        int ready[2];
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        m_id = fork_child();
        if (m_id == 0) {
            execl(name.c_str(), "sleep", "600", nullptr);
            _exit(127);
        }
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 0);  // the program has been executed
        close(ready[0]);
    }
    ~NamedProcess() { End(); }
    NamedProcess &operator=(NamedProcess &&) = delete;  // nor copied

    DWORD Id() const { return static_cast<DWORD>(m_id); }

    // Kills the process and lets the host forget it.
    void End() {
        if (m_id > 0) {
            kill(m_id, SIGKILL);
            waitpid(m_id, nullptr, 0);
            m_id = 0;
        }
    }

    // Whether the process runs; for one that was killed, waits for its end.
    bool WasKilled() {
        int status = 0;
        const bool killed = waitpid(m_id, &status, 0) == m_id && WIFSIGNALED(status);
        m_id = 0;
        return killed;
    }
    bool Runs() const { return waitpid(m_id, nullptr, WNOHANG) == 0; }

private:
    pid_t m_id = 0;
};

inline constexpr DWORD kLook = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;

#endif  // TESTS_SUPPORT_PROCESSES_H
