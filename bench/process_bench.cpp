// CEnumProcess over a thousand processes, beside libproc2 (procps) and a bare loop over the host's
// calls; and a program's start, end and exit code beside posix_spawn and fork, without and with a
// gigabyte of memory that the caller has written to.
//
// libproc2 gives the path of each process's file (Exe), or the 15 bytes that the process calls
// itself (Command).

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <libproc2/pids.h>
#include <linux/limits.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "ostrel/platform/handle.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/sync.h"
#include "ostrel/service/ProcessUtility.h"

namespace {

constexpr std::size_t kProcesses = 1000;  // within the 1024 that CEnumProcess sees

class Crowd {
public:
    // Fills the machine up to kProcesses, with processes that end with this one.
    static const Crowd &Instance() {
        static const Crowd crowd;
        return crowd;
    }
    ~Crowd() {
        for (const pid_t id : m_ids) {
            kill(id, SIGKILL);
            waitpid(id, nullptr, 0);
        }
    }

private:
    Crowd() {
        DWORD ids[1024], bytes = 0;
        EnumProcesses(ids, sizeof ids, &bytes);
        for (std::size_t count = bytes / sizeof(DWORD); count < kProcesses; ++count) {
            m_ids.push_back(fork());
            if (m_ids.back() == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
                for (;;) {
                    pause();
                }
            }
        }
    }

    std::vector<pid_t> m_ids;
};

struct Count : OS::CEnumProcess::CEnumProcessCallback {
    bool OnProcess(DWORD id, const WCHAR *name) override {
        benchmark::DoNotOptimize(id);
        benchmark::DoNotOptimize(name);
        ++found;
        return false;
    }
    std::size_t found = 0;
};

std::size_t walk_ostrel() {
    Count count;
    OS::CEnumProcess().EnumProcess(count);
    return count.found;
}

template <pids_item kItem>
std::size_t walk_procps() {
    pids_info *info = nullptr;
    pids_item items[] = {PIDS_ID_PID, kItem};
    std::size_t found = 0;
    if (procps_pids_new(&info, items, 2) == 0) {
        while (pids_stack *const stack = procps_pids_get(info, PIDS_FETCH_TASKS_ONLY)) {
            const std::string name = stack->head[1].result.str;
            benchmark::DoNotOptimize(name);
            ++found;
        }
        procps_pids_unref(&info);
    }
    return found;
}

std::size_t walk_bare() {
    std::size_t found = 0;
    DIR *const folder = opendir("/proc");
    while (const dirent *const entry = readdir(folder)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') {
            continue;
        }
        char name[PATH_MAX];
        const std::string path = std::string("/proc/") + entry->d_name + "/exe";
        found += readlink(path.c_str(), name, sizeof name) > 0 ? 1 : 0;
    }
    closedir(folder);
    return found;
}

template <std::size_t (*kWalk)()>
void Walk(benchmark::State &state) {
    Crowd::Instance();
    std::size_t found = 0;
    for (auto _ : state) {
        found = kWalk();
    }
    state.counters["processes"] = static_cast<double>(found);
}
BENCHMARK(Walk<walk_ostrel>)->Name("Walk_Ostrel")->Unit(benchmark::kMillisecond);
BENCHMARK(Walk<walk_procps<PIDS_EXE>>)->Name("Walk_ProcpsExe")->Unit(benchmark::kMillisecond);
BENCHMARK(Walk<walk_procps<PIDS_CMD>>)->Name("Walk_ProcpsCommand")->Unit(benchmark::kMillisecond);
BENCHMARK(Walk<walk_bare>)->Name("Walk_Bare")->Unit(benchmark::kMillisecond);

bool run_ostrel() {
    WCHAR line[] = TEXT("C:\\bin\\true");
    STARTUPINFOW startup = {};
    PROCESS_INFORMATION info;
    DWORD code = 1;
    if (!CreateProcessW(nullptr, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &info)) {
        return false;
    }
    WaitForSingleObject(info.hProcess, INFINITE);
    GetExitCodeProcess(info.hProcess, &code);
    CloseHandle(info.hProcess);
    CloseHandle(info.hThread);
    return code == 0;
}

char g_path[] = "/bin/true";
char *const g_arguments[] = {g_path, nullptr};

bool run_posix_spawn() {
    pid_t id = 0;
    int status = 1;
    return posix_spawn(&id, g_path, nullptr, nullptr, g_arguments, environ) == 0 &&
           waitpid(id, &status, 0) == id && status == 0;
}

bool run_fork() {
    int status = 1;
    const pid_t id = fork();
    if (id == 0) {
        execv(g_path, g_arguments);
        _exit(127);
    }
    return waitpid(id, &status, 0) == id && status == 0;
}

// state.range(0) is how many megabytes the caller has written to.
template <bool (*kRun)()>
void Run(benchmark::State &state) {
    std::vector<char> memory(static_cast<std::size_t>(state.range(0)) << 20, 'x');
    benchmark::DoNotOptimize(memory.data());
    for (auto _ : state) {
        if (!kRun()) {
            state.SkipWithError("the program failed");
        }
    }
}
#define OSTREL_RUNS(name, run) \
    BENCHMARK(Run<run>)->Name("Run_" name)->Arg(0)->Arg(1024)->UseRealTime()
OSTREL_RUNS("Ostrel", run_ostrel);
OSTREL_RUNS("PosixSpawn", run_posix_spawn);
OSTREL_RUNS("ForkExec", run_fork);

}  // namespace
