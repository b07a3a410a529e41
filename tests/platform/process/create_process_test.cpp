// CreateProcessW, GetExitCodeProcess and TerminateProcess.

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/utsname.h>

#include <thread>

#include "ostrel/platform/error.h"
#include "support/file_calls.h"
#include "support/processes.h"

namespace {

// A process that was started, or why not.
struct Started {
    explicit Started(std::u16string line, DWORD flags = 0, void *environment = nullptr,
                     const WCHAR *directory = nullptr, const WCHAR *output = nullptr,
                     const WCHAR *application = nullptr) {
        STARTUPINFOW startup = {};
        startup.cb = sizeof startup;
        HANDLE file = nullptr;
        if (output != nullptr) {
            file =
                CreateFileW(output, GENERIC_WRITE, kShareAll, nullptr, CREATE_ALWAYS, 0, nullptr);
            startup.dwFlags = STARTF_USESTDHANDLES;
            startup.hStdOutput = file;
        }
        error =
            error_of(CreateProcessW(application, line.data(), nullptr, nullptr, output != nullptr,
                                    flags, environment, directory, &startup, &info));
        if (file != nullptr) {
            EXPECT_TRUE(CloseHandle(file));
        }
    }
    ~Started() {
        if (error == 0) {
            EXPECT_TRUE(CloseHandle(info.hProcess) && CloseHandle(info.hThread));
        }
    }
    Started &operator=(Started &&) = delete;  // nor copied

    // The exit code once the process has ended, or the error.
    DWORD End() const {
        DWORD code = error;
        if (error == 0) {
            EXPECT_EQ(WaitForSingleObject(info.hThread, INFINITE), WAIT_OBJECT_0);
            EXPECT_EQ(WaitForSingleObject(info.hProcess, INFINITE), WAIT_OBJECT_0);
            EXPECT_EQ(error_of(GetExitCodeProcess(info.hProcess, &code)), 0u);
        }
        return code;
    }

    PROCESS_INFORMATION info = {};
    DWORD error;
};

std::string content(const char *name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What a program writes to its standard output.
std::string output_of(const std::u16string &line, DWORD flags = 0, void *environment = nullptr,
                      const WCHAR *directory = nullptr) {
    EXPECT_EQ(Started(line, flags, environment, directory, u"out").End(), 0u);
    return content("out");
}

TEST(CreateProcess, CutsTheArguments) {
    const TempDir dir;
    const std::pair<const WCHAR *, const char *> cases[] = {
        {u"a  b\tc", "[a][b][c]"},
        {u"\"a b\"c d\" e\"", "[a bc][d e]"},
        {u"a\\b\\\\c \"d\\\\\" e", "[a\\b\\\\c][d\\][e]"},
        {u"a\\\"b \"c\\\"d\" \"e\\\\\"f", "[a\"b][c\"d][e\\f]"},
        {u"\"a\"\"b\" c\"\"d \"\"", "[a\"b][cd][]"},
        {u"\"a\"\"\"\" b", "[a\"\" b]"},
        {u"$HOME * `id` %PATH% a&b|c>d;e 'f g'", "[$HOME][*][`id`][%PATH%][a&b|c>d;e]['f][g']"},
        {u"a\nb \"open", "[a\nb][open]"},
        {u"\xE9 \xD83D\xDE00 \xDCFF\xDC5C \xD800",
         "[\xC3\xA9][\xF0\x9F\x98\x80][\xFF\\][\xEF\xBF\xBD]"},
    };
    for (const auto &[line, expected] : cases) {
        EXPECT_EQ(output_of(std::u16string(u"\"printf\" [%s] ") + line), expected)
            << PrintToString(line);
    }
    EXPECT_EQ(output_of(u"\"/usr/bin/printf\"%s"), "");
}

TEST(CreateProcess, FindsTheProgramOfAName) {
    const TempDir dir;
    const auto plant_script = [](const char *name, int code, int mode = 0755) {
        std::ofstream(name) << "#!/bin/sh\nexit " << code << "\n";
        chmod(name, static_cast<mode_t>(mode));
    };
    for (const char *const folder : {"path/", "path/sub.exe/", "later/"}) {
        fs::create_directories(folder);
    }
    plant_script("here", 1);
    plant_script("path/tool", 2);
    plant_script("path/tool.exe", 3);
    plant_script("path/other.exe", 4);
    plant_script("path/a b", 5);
    plant_script("path/a.sh", 6);
    plant_script("path/locked", 7, 0644);
    plant_script("later/locked", 8);
    plant_script("later/sub.exe", 9);
    plant_script("path/locked2", 10, 0644);
    std::ofstream("path/text") << "exit 11\n";
    std::ofstream("path/bad") << "#!/no/such/program\n";
    chmod("path/text", 0755);
    chmod("path/bad", 0755);
    const std::string before = getenv("PATH");
    const std::string here = dir.Path();
    setenv("PATH", (here + "/path:.::" + here + "/later:" + before).c_str(), 1);
    const std::pair<std::u16string, DWORD> cases[] = {
        {u"tool", 3},
        {u"tool x", 3},
        {u"tool.", 2},
        {u"TOOL", ERROR_FILE_NOT_FOUND},
        {u"other", 4},
        {u"other.exe", 4},
        {u"a b c", 5},
        {u"\"a b\" c", 5},
        {u"\"a\" b", ERROR_FILE_NOT_FOUND},
        {u"a.sh", 6},
        {u"locked", 8},
        {u"locked2", ERROR_ACCESS_DENIED},
        {u"sub", 9},
        {u"text", ERROR_BAD_EXE_FORMAT},
        {u"bad", ERROR_FILE_NOT_FOUND},
        {u"here", ERROR_FILE_NOT_FOUND},  // not from the current directory by a name alone
        {u".\\here", 1},
        {u".\\here.exe", 1},
        {u"path\\a b", 5},
        {u"C:" + (dir.Path() / "path" / "tool").u16string(), 3},
        {u".\\path", ERROR_ACCESS_DENIED},
        {u".\\none\\x", ERROR_PATH_NOT_FOUND},
        {u".\\none", ERROR_FILE_NOT_FOUND},
        {u" here", ERROR_FILE_NOT_FOUND},
        {u"\"\"", ERROR_FILE_NOT_FOUND},
        {u"", ERROR_INVALID_PARAMETER},
        {std::u16string(300, u'x'), ERROR_FILENAME_EXCED_RANGE},
        {std::u16string(u"tool ") + std::u16string(32763, u'x'), ERROR_FILENAME_EXCED_RANGE},
    };
    for (const auto &[line, code] : cases) {
        EXPECT_EQ(Started(line).End(), code) << PrintToString(line.substr(0, 20));
    }
    EXPECT_EQ(Started(u"x y", 0, nullptr, nullptr, nullptr, u"path\\tool").End(), 2u);
    EXPECT_EQ(Started(u"x y", 0, nullptr, nullptr, nullptr, u"tool").error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(Started(u"tool", CREATE_SUSPENDED).error, ERROR_NOT_SUPPORTED);
    EXPECT_EQ(Started(u"tool", 0x80000000).error, ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Started(u"tool", 0, nullptr, u"none").error, ERROR_DIRECTORY);
    EXPECT_EQ(Started(u"tool", 0, nullptr, u"here").error, ERROR_DIRECTORY);
    setenv("PATH", before.c_str(), 1);
}

// Makes this thread's host one that lacks close_range, as before Linux 5.9.
void refuse_to_close_ranges() {
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close_range, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter = {std::size(steps), steps};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter), 0);
}

TEST(CreateProcess, GivesTheProgramItsSurroundings) {
    const TempDir dir;
    fs::create_directory("sub");
    setenv("OSTREL_TEST_VALUE", "own", 1);
    const std::u16string line = u"sh -c \"echo $OSTREL_TEST_VALUE $(basename $(pwd))\"";
    EXPECT_EQ(output_of(line, CREATE_NO_WINDOW | DETACHED_PROCESS, nullptr, u".\\sub"),
              "own sub\n");
    WCHAR wide[] = u"OSTREL_TEST_VALUE=w\xE9\0PATH=/bin\0";
    char narrow[] = "OSTREL_TEST_VALUE=n\0PATH=/bin\0";
    EXPECT_EQ(output_of(line, CREATE_UNICODE_ENVIRONMENT, wide, u"sub"), "w\xC3\xA9 sub\n");
    EXPECT_EQ(output_of(line, 0, narrow, u"sub"), "n sub\n");
    // Neither blocked nor ignored signals, and no descriptor unless they are to be inherited.
    EXPECT_TRUE(holds_in_child([] {
        signal(SIGTERM, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        EXPECT_EQ(Started(u"sh -c \"kill $$; exit 3\"").End(), 0xE000000Fu);
        ASSERT_EQ(dup2(1, 77), 77);
        EXPECT_EQ(Started(u"test -e /proc/self/fd/77").End(), 1u);
        refuse_to_close_ranges();
        EXPECT_EQ(Started(u"test -e /proc/self/fd/77").End(), 1u);
        EXPECT_EQ(Started(u"test -e /proc/self/fd/77", 0, nullptr, nullptr, u"out").End(), 0u);
    }));
    // In a program that has closed its standard descriptors.
    EXPECT_TRUE(holds_in_child([] {
        close(0);
        close(1);
        EXPECT_EQ(output_of(u"sh -c \"basename $(pwd)\"", 0, nullptr, u"sub"), "sub\n");
    }));
    STARTUPINFOW startup = {};
    PROCESS_INFORMATION info;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdError = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (const auto &[inherit, code] :
         {std::pair(TRUE, ERROR_INVALID_HANDLE), std::pair(FALSE, ERROR_INVALID_PARAMETER)}) {
        WCHAR program[] = u"true";
        EXPECT_EQ(error_of(CreateProcessW(nullptr, program, nullptr, nullptr, inherit, 0, nullptr,
                                          nullptr, &startup, &info)),
                  code);
    }
    EXPECT_TRUE(CloseHandle(startup.hStdError));
}

TEST(CreateProcess, TellsHowAProcessEnded) {
    const std::pair<const WCHAR *, DWORD> cases[] = {
        {u"exit 0", 0},
        {u"exit 259", 3},
        {u"kill -SEGV $$", 0xC0000005},
        {u"kill -BUS $$", 0xC0000005},
        {u"kill -ILL $$", 0xC000001D},
        {u"kill -FPE $$", 0xC0000094},
        {u"kill -INT $$", 0xC000013A},
        {u"kill -9 $$", 0xE0000009},
        {u"exit 255", 255},
    };
    for (const auto &[command, code] : cases) {
        EXPECT_EQ(Started(std::u16string(u"sh -c \"") + command + u'"').End(), code)
            << PrintToString(command);
    }
}

TEST(CreateProcess, TellsAnEndWithoutAWait) {
    for (int i = 0; i < 50; ++i) {
        const Started process(u"sh -c \"exit 7\"");
        DWORD code = STILL_ACTIVE;
        while (code == STILL_ACTIVE) {
            ASSERT_EQ(error_of(GetExitCodeProcess(process.info.hProcess, &code)), 0u);
        }
        EXPECT_EQ(code, 7u);
    }
}

TEST(CreateProcess, TerminatesWithTheCodeThatItIsGiven) {
    const Started process(u"sleep 600");
    ASSERT_EQ(process.error, 0u);
    const HANDLE second = OpenProcess(PROCESS_TERMINATE, FALSE, process.info.dwProcessId);
    const HANDLE third =
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process.info.dwProcessId);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeProcess(third, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    const HANDLE both[] = {CreateEventW(nullptr, TRUE, FALSE, nullptr), third};
    EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, 0), DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(error_of(TerminateProcess(third, 1)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(TerminateProcess(second, 0x12345678)), 0u);
    EXPECT_EQ(WaitForMultipleObjects(2, both, FALSE, INFINITE), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(GetExitCodeProcess(third, &code));
    EXPECT_EQ(code, 0x12345678u);
    EXPECT_EQ(process.End(), 0x12345678u);
    EXPECT_EQ(error_of(TerminateProcess(second, 2)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(GetExitCodeProcess(second, &code)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(GetExitCodeProcess(both[0], &code)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(error_of(TerminateProcess(both[0], 1)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(error_of(GetExitCodeProcess(third, nullptr)), ERROR_NOACCESS);
    EXPECT_TRUE(CloseHandle(second) && CloseHandle(third) && CloseHandle(both[0]));
    EXPECT_EQ(exit_of_child([] {
                  TerminateProcess(
                      OpenProcess(PROCESS_TERMINATE, FALSE, static_cast<DWORD>(getpid())), 0x105);
                  return 1;
              }),
              5);
}

// Waits until the process has no child, also none that has ended.
void wait_for_no_child() {
    siginfo_t end;
    while (waitid(P_ALL, 0, &end, WEXITED | WNOHANG | WNOWAIT) == 0) {
        sched_yield();
    }
    EXPECT_EQ(errno, ECHILD);
}

// Whether the host tells the code of a process whose end somebody else has taken.
bool host_tells_all_codes() {
    utsname host;
    int major = 0, minor = 0;
    return uname(&host) == 0 && std::sscanf(host.release, "%d.%d", &major, &minor) == 2 &&
           std::pair(major, minor) >= std::pair(6, 15);
}

TEST(CreateProcess, LeavesNoZombieAndLosesNoCode) {
    const std::tuple<const char *, bool, void (*)()> cases[] = {
        {"default", true, [] {}},
        {"ignored", host_tells_all_codes(), [] { signal(SIGCHLD, SIG_IGN); }},
        {"a handler that waits for every child", host_tells_all_codes(),
         [] {
             signal(SIGCHLD, [](int) {
                 while (waitpid(-1, nullptr, WNOHANG) > 0) {
                 }
             });
         }},
        {"after a fork", true,
         [] {
             EXPECT_EQ(Started(u"true").End(), 0u);
             EXPECT_TRUE(holds_in_child([] { EXPECT_EQ(Started(u"false").End(), 1u); }));
         }},
    };
    for (const auto &[name, is_told, prepare] : cases) {
        EXPECT_TRUE(holds_in_child([prepare = prepare, is_told = is_told] {
            prepare();
            Started(u"sleep 0.01");  // closed while it runs
            for (int i = 0; i < 20; ++i) {
                const Started process(u"sh -c \"exit 7\"");
                ASSERT_EQ(process.error, 0u);
                WaitForSingleObject(process.info.hProcess, INFINITE);
                DWORD code = 0;
                if (GetExitCodeProcess(process.info.hProcess, &code) || is_told) {
                    EXPECT_EQ(code, 7u);
                } else {
                    EXPECT_EQ(GetLastError(), ERROR_NOT_FOUND);  // of an older host
                }
            }
            wait_for_no_child();
        })) << name;
    }
}

TEST(CreateProcess, StartsAndEndsProcessesOnThreads) {
    const auto count_descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), {});
    };
    EXPECT_EQ(Started(u"true").End(), 0u);  // starts the thread of the layer
    const auto before = count_descriptors();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            for (int j = 0; j < 10; ++j) {
                if (i % 2 == 0) {
                    const std::u16string code(1, static_cast<WCHAR>(u'0' + j));
                    EXPECT_EQ(Started(u"sh -c \"exit " + code + u'"').End(), DWORD(j));
                } else {
                    const Started process(u"sleep 600");
                    EXPECT_TRUE(TerminateProcess(process.info.hProcess, DWORD(300 + j)));
                    EXPECT_EQ(process.End(), DWORD(300 + j));
                }
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    wait_for_no_child();
    while (count_descriptors() > before) {  // the thread of the layer lets go of the last one
        sched_yield();
    }
}

}  // namespace
